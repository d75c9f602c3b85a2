#include "Tests/Support/Process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace vark::test {

namespace {

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> list;
    list.reserve(texts.size() + 1);
    for (std::string& text : texts)
        list.push_back(text.data());
    list.push_back(nullptr);
    return list;
}

/// What the child does before it becomes the program; only calls that are safe after a fork.
class Launch {
  public:
    explicit Launch(const Process::Options& options)
        : options_(options),
          arguments_{options.program.string()},
          argumentPointers_(),
          environmentPointers_() {
        arguments_.insert(arguments_.end(), options.arguments.begin(), options.arguments.end());
        for (const auto& [name, value] : options.environment)
            environment_.push_back(name + "=" + value);
        argumentPointers_ = pointers(arguments_);
        environmentPointers_ = pointers(environment_);
    }

    [[noreturn]] void run(pid_t parent) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) ::_exit(126);
        sigset_t none;
        sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        if (options_.largestFile) {
            ::signal(SIGXFSZ, SIG_IGN);
            rlimit limit{*options_.largestFile, *options_.largestFile};
            ::setrlimit(RLIMIT_FSIZE, &limit);
        }
        if (options_.terminal >= 0) {
            ::setsid();
            ::ioctl(options_.terminal, TIOCSCTTY, 0);
            for (int descriptor : {0, 1, 2})
                ::dup2(options_.terminal, descriptor);
        } else {
            connect(0, "/dev/null", O_RDONLY);
            connect(1, options_.output.c_str(), O_WRONLY | O_CREAT | O_APPEND);
            connect(2, options_.errors.c_str(), O_WRONLY | O_CREAT | O_APPEND);
        }
        ::execve(arguments_[0].c_str(), argumentPointers_.data(), environmentPointers_.data());
        ::_exit(127);
    }

  private:
    static void connect(int descriptor, const char* path, int flags) {
        int opened = ::open(path, flags | O_CLOEXEC, 0600);
        if (opened < 0 || ::dup2(opened, descriptor) < 0) ::_exit(125);
    }

    const Process::Options& options_;
    std::vector<std::string> arguments_;
    std::vector<std::string> environment_;
    std::vector<char*> argumentPointers_;
    std::vector<char*> environmentPointers_;
};

}  // namespace

void Process::Options::startBy(const std::vector<std::string>& prefix) {
    if (prefix.empty()) return;
    arguments.insert(arguments.begin(), program.string());
    arguments.insert(arguments.begin(), prefix.begin() + 1, prefix.end());
    program = prefix.front();
}

Process::Process(const Options& options) : options_(options) {
    Launch launch(options_);
    pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ < 0) throw std::runtime_error("No process could be made.");
    if (pid_ == 0) launch.run(parent);
    pidfd_ = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
    if (!pidfd_) throw std::runtime_error("The end of a process cannot be watched here.");
}

Process::Process(Process&& other) noexcept
    : options_(std::move(other.options_)),
      pid_(std::exchange(other.pid_, -1)),
      pidfd_(std::move(other.pidfd_)),
      exit_(other.exit_),
      peakMemory_(other.peakMemory_) {}

Process::~Process() {
    kill();
}

std::optional<Exit> Process::exitWithin(std::chrono::milliseconds limit) {
    if (exit_ || pid_ < 0) return exit_;
    pollfd end{pidfd_.get(), POLLIN, 0};
    if (::poll(&end, 1, static_cast<int>(limit.count())) <= 0) return std::nullopt;
    int status = 0;
    rusage usage{};
    if (::wait4(pid_, &status, 0, &usage) != pid_) throw std::runtime_error("A child was taken by another.");
    peakMemory_ = std::int64_t{usage.ru_maxrss} * 1024;
    exit_ =
        WIFEXITED(status) ? Exit{WEXITSTATUS(status), std::nullopt} : Exit{std::nullopt, WTERMSIG(status)};
    return exit_;
}

Exit Process::wait(std::chrono::milliseconds limit) {
    if (std::optional<Exit> exit = exitWithin(limit)) return *exit;
    kill();
    ADD_FAILURE() << options_.program << " did not end within " << limit.count() << " ms. It wrote:\n"
                  << output() << errors();
    return *exit_;
}

void Process::signal(int number) const {
    if (!exit_) ::kill(pid_, number);
}

void Process::kill() {
    if (pid_ < 0 || exit_) return;
    ::kill(pid_, SIGKILL);
    exitWithin(std::chrono::hours(1));
}

std::string Process::read(const std::filesystem::path& path) {
    return path.empty() || !std::filesystem::exists(path) ? std::string() : readWholeFile(path);
}

}  // namespace vark::test
