#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "VarkCore/Foundation/Files.h"

namespace vark::test {

/// How a process ended: by a code, or by a signal.
struct Exit {
    std::optional<int> code;
    std::optional<int> signal;

    bool operator==(const Exit&) const = default;
};

inline Exit exitCode(int code) {
    return {code, std::nullopt};
}

/// A run that is over.
struct Finished {
    Exit exit;
    std::string output;
    std::string errors;
    /// The most memory that it ever held, in bytes, or what the test held when it was started if that was
    /// more.
    std::int64_t peakMemory = 0;
};

/// One real program. Its output goes into files, and it is killed when this object or the thread that started
/// it ends before it. For the test's thread alone.
class Process {
  public:
    struct Options {
        std::filesystem::path program;
        std::vector<std::string> arguments{};
        /// The whole environment: nothing is inherited.
        std::map<std::string, std::string> environment{{"PATH", "/usr/sbin:/usr/bin:/sbin:/bin"}};
        /// Where what it writes goes; somewhere of our own unless it is said.
        std::filesystem::path output{};
        std::filesystem::path errors{};

        /// Lets another program start this one, as its last arguments.
        void startBy(const std::vector<std::string>& prefix);
    };

    explicit Process(Options options);
    Process(Process&&) = default;
    Process& operator=(Process&&) = delete;
    ~Process() { kill(); }

    pid_t pid() const { return pid_; }
    bool hasEnded() { return exitWithin(std::chrono::milliseconds(0)).has_value(); }
    std::optional<Exit> exitWithin(std::chrono::milliseconds limit);
    /// A process that outlives the limit is killed and fails the test with what it wrote.
    Exit wait(std::chrono::milliseconds limit = std::chrono::minutes(1));
    Finished finish(std::chrono::milliseconds limit = std::chrono::minutes(1));
    void signal(int number) const;
    /// SIGKILL, and the wait for its end. Does nothing to a process that has ended.
    void kill();

    /// Wait until the answer is yes, the words were written, or a file is there. False when the process ended
    /// before, or a minute passed.
    bool until(const std::function<bool()>& answer) const;
    bool untilWritten(std::string_view words) const;
    bool untilThere(const std::filesystem::path& file) const;

    std::string output() const { return read(options_.output); }
    std::string errors() const { return read(options_.errors); }

  private:
    static std::string read(const std::filesystem::path& path);

    Options options_;
    pid_t pid_ = -1;
    Descriptor pidfd_;
    std::optional<Exit> exit_;
    std::int64_t peakMemory_ = 0;
};

/// What a tool of the system prints. Throws with what it says when it fails.
std::string runTool(std::vector<std::string> command, std::map<std::string, std::string> environment = {});

}  // namespace vark::test
