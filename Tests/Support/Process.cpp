#include "Tests/Support/Process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <utility>

#include "Tests/Support/TemporaryFolder.h"

namespace vark::test {

namespace {

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> list;
    for (std::string& text : texts)
        list.push_back(text.data());
    list.push_back(nullptr);
    return list;
}

void connect(int descriptor, const char* path, int flags) {
    const int opened = open(path, flags | O_CLOEXEC, 0600);
    if (opened < 0 || dup2(opened, descriptor) < 0) _exit(125);
}

/// What the child does before it becomes the program: only calls that are safe after a fork.
void prepare(const Process::Options& options, pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(126);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    connect(0, "/dev/null", O_RDONLY);
    connect(1, options.output.c_str(), O_WRONLY | O_CREAT | O_APPEND);
    connect(2, options.errors.c_str(), O_WRONLY | O_CREAT | O_APPEND);
}

}  // namespace

void Process::Options::startBy(const std::vector<std::string>& prefix) {
    if (prefix.empty()) return;
    arguments.insert(arguments.begin(), program.string());
    arguments.insert(arguments.begin(), prefix.begin() + 1, prefix.end());
    program = prefix.front();
}

Process::Process(Options options) : options_(std::move(options)) {
    static const TemporaryFolder outputs;
    static int count = 0;
    if (options_.output.empty()) {
        options_.output = outputs / fmt::format("{}.out", ++count);
        options_.errors = outputs / fmt::format("{}.err", count);
    }
    std::vector<std::string> arguments{options_.program};
    arguments.insert(arguments.end(), options_.arguments.begin(), options_.arguments.end());
    std::vector<std::string> environment;
    for (const auto& [name, value] : options_.environment)
        environment.push_back(name + "=" + value);
    const std::vector<char*> argumentPointers = pointersTo(arguments);
    const std::vector<char*> environmentPointers = pointersTo(environment);
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) {
        prepare(options_, parent);
        execve(arguments[0].c_str(), argumentPointers.data(), environmentPointers.data());
        _exit(127);
    }
    pidfd_ = Descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
    if (pid_ < 0 || !pidfd_) throw std::runtime_error("No process could be made.");
}

std::optional<Exit> Process::exitWithin(std::chrono::milliseconds limit) {
    if (exit_ || !pidfd_) return exit_;
    pollfd end{pidfd_.get(), POLLIN, 0};
    if (poll(&end, 1, static_cast<int>(limit.count())) <= 0) return std::nullopt;
    int status = 0;
    rusage usage{};
    if (wait4(pid_, &status, 0, &usage) != pid_) throw std::runtime_error("A child was taken by another.");
    peakMemory_ = std::int64_t{usage.ru_maxrss} * 1024;
    exit_ = WIFEXITED(status) ? exitCode(WEXITSTATUS(status)) : Exit{std::nullopt, WTERMSIG(status)};
    return exit_;
}

Exit Process::wait(std::chrono::milliseconds limit) {
    if (const std::optional<Exit> exit = exitWithin(limit)) return *exit;
    kill();
    ADD_FAILURE() << options_.program << " did not end in time. It wrote:\n" << output() << errors();
    return *exit_;
}

Finished Process::finish(std::chrono::milliseconds limit) {
    const Exit exit = wait(limit);
    return {exit, output(), errors(), peakMemory_};
}

void Process::signal(int number) const {
    if (!exit_) ::kill(pid_, number);
}

void Process::kill() {
    if (!pidfd_ || exit_) return;
    ::kill(pid_, SIGKILL);
    exitWithin(std::chrono::hours(1));
}

bool Process::until(const std::function<bool()>& answer) const {
    constexpr int millisecondsBetweenLooks = 10;
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!answer()) {
        pollfd ended{pidfd_.get(), POLLIN, 0};
        const bool isOver = poll(&ended, 1, millisecondsBetweenLooks) > 0;
        if (isOver || std::chrono::steady_clock::now() > end) return answer();
    }
    return true;
}

bool Process::untilWritten(std::string_view words) const {
    return until([&] { return output().contains(words) || errors().contains(words); });
}

bool Process::untilThere(const std::filesystem::path& file) const {
    return until([&] { return std::filesystem::exists(file); });
}

std::string Process::read(const std::filesystem::path& path) {
    return std::filesystem::exists(path) ? readWholeFile(path) : std::string();
}

std::string runTool(std::vector<std::string> command, std::map<std::string, std::string> environment) {
    Process::Options options{.program = "/usr/bin/env", .arguments = command};
    options.environment.merge(environment);
    const Finished run = Process(options).finish();
    if (run.exit != exitCode(0))
        throw std::runtime_error(fmt::format("{}: {}", command, run.errors + run.output));
    return run.output;
}

}  // namespace vark::test
