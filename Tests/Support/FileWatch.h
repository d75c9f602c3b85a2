#pragma once

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>

#include "VarkCore/Foundation/Files.h"

namespace vark::test {

/// Wakes when something happens in a folder: a file in it was made, written or renamed.
class FileWatch {
  public:
    explicit FileWatch(const std::filesystem::path& folder)
        : notes_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        if (inotify_add_watch(notes_.get(), folder.c_str(), IN_CREATE | IN_MODIFY | IN_MOVED_TO) < 0)
            throw FileError("Could not watch", folder, errno);
    }

    /// Asks at once, and again after each change, until the answer is yes. False when a minute has passed, or
    /// when the process behind `pidfd` (if there is one) has ended and the answer is still no.
    bool until(const std::function<bool()>& answer, int pidfd = -1) const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        std::array<char, 4096> drained{};
        while (true) {
            while (read(notes_.get(), drained.data(), drained.size()) > 0) {
            }
            if (answer()) return true;
            const std::chrono::milliseconds left =
                std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            if (left.count() <= 0) return false;
            std::array<pollfd, 2> events{{{notes_.get(), POLLIN, 0}, {pidfd, POLLIN, 0}}};
            poll(events.data(), events.size(), static_cast<int>(left.count()));
            if (events[1].revents != 0) return answer();
        }
    }

  private:
    Descriptor notes_;
};

}  // namespace vark::test
