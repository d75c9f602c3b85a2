#pragma once

#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "Tests/Support/Process.h"
#include "Tests/Support/TemporaryFolder.h"

namespace vark::test {

/// A table of mounts of its own, and a network of its own where that is asked for, in which programs see
/// another system than the test. It lasts as long as this object. For the test's thread alone.
class OwnNamespaces {
  public:
    static constexpr const char* whySkipped = "SKIPPED: THIS KERNEL GIVES NO NAMESPACES OF ONE'S OWN.";

    /// `script` makes what is to be seen; it runs inside, in a shell.
    explicit OwnNamespaces(const std::string& script, std::vector<std::string> kinds = {"--mount"})
        : kinds_(std::move(kinds)),
          areGiven_(start("true").wait() == exitCode(0)),
          holder_(start(script + "\n: > '" + (folder_ / "ready").string() + "'\nexec sleep infinity")) {
        if (areGiven_ && !holder_.untilThere(folder_ / "ready")) throw std::runtime_error(holder_.errors());
    }

    /// Whether this kernel gives them. If not, the test is to be skipped, with `whySkipped`.
    bool areThere() const { return areGiven_; }
    /// What starts a program inside.
    std::vector<std::string> prefix() const {
        std::vector<std::string> words{"/usr/bin/nsenter", "--target", std::to_string(holder_.pid())};
        words.insert(words.end(), kinds_.begin(), kinds_.end());
        if (geteuid() != 0) words.insert(words.end(), {"--user", "--preserve-credentials"});
        return words;
    }
    /// A path inside, as the test sees it.
    std::filesystem::path seen(const std::filesystem::path& inside) const {
        return ofHolder("root") / inside.relative_path();
    }
    std::filesystem::path table() const { return ofHolder("mountinfo"); }
    /// Runs a script inside. Throws when it fails.
    void run(const std::string& script) const {
        std::vector<std::string> command = prefix();
        command.insert(command.end(), {"/bin/sh", "-ec", script});
        runTool(command);
    }

  private:
    std::filesystem::path ofHolder(const char* name) const {
        return std::filesystem::path("/proc") / std::to_string(holder_.pid()) / name;
    }
    Process start(const std::string& script) const {
        std::vector<std::string> arguments{"--propagation", "private"};
        arguments.insert(arguments.end(), kinds_.begin(), kinds_.end());
        if (geteuid() != 0) arguments.insert(arguments.end(), {"--user", "--map-root-user"});
        arguments.insert(arguments.end(), {"/bin/sh", "-ec", script});
        return Process({.program = "/usr/bin/unshare", .arguments = arguments});
    }

    TemporaryFolder folder_;
    const std::vector<std::string> kinds_;
    const bool areGiven_;
    Process holder_;
};

}  // namespace vark::test
