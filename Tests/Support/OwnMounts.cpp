#include "Tests/Support/OwnMounts.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "Tests/Support/FileWatch.h"

namespace vark::test {

OwnMounts::OwnMounts(const std::string& script) {
    const std::filesystem::path ready = folder_ / "ready";
    std::vector<std::string> command = {"/usr/bin/unshare", "--mount", "--propagation", "private"};
    if (geteuid() != 0) command.insert(command.end(), {"--user", "--map-root-user"});
    command.insert(command.end(),
                   {"/bin/sh", "-ec", script + "\n: > '" + ready.string() + "'\nexec sleep infinity"});
    FileWatch watch(folder_.path());
    holder_.emplace(start(command));
    isThere_ = watch.until([&] { return std::filesystem::exists(ready); }, std::chrono::seconds(20),
                           holder_->descriptor());
}

Process OwnMounts::start(const std::vector<std::string>& command) {
    const std::string run = std::to_string(++runs_);
    Process::Options options;
    options.program = command.front();
    options.arguments.assign(command.begin() + 1, command.end());
    options.environment = {{"PATH", "/usr/sbin:/usr/bin:/sbin:/bin"}};
    options.output = folder_ / (run + ".out");
    options.errors = folder_ / (run + ".err");
    return Process(options);
}

std::vector<std::string> OwnMounts::prefix() const {
    std::vector<std::string> words = {"/usr/bin/nsenter", "--target", std::to_string(holder_->pid()),
                                      "--mount"};
    if (geteuid() != 0) words.insert(words.end(), {"--user", "--preserve-credentials"});
    return words;
}

std::filesystem::path OwnMounts::seen(const std::filesystem::path& inside) const {
    return std::filesystem::path("/proc") / std::to_string(holder_->pid()) / "root" / inside.relative_path();
}

void OwnMounts::run(const std::string& script) {
    std::vector<std::string> command = prefix();
    command.insert(command.end(), {"/bin/sh", "-ec", script});
    Process process = start(command);
    EXPECT_EQ(process.wait(), (Exit{0, std::nullopt})) << script << process.errors();
}

}  // namespace vark::test
