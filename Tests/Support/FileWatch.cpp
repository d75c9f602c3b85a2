#include "Tests/Support/FileWatch.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace vark::test {

FileWatch::FileWatch(const std::filesystem::path& folder)
    : notes_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (::inotify_add_watch(notes_.get(), folder.c_str(), IN_CREATE | IN_MODIFY | IN_MOVED_TO) < 0)
        throw FileError("Could not watch", folder, errno);
}

bool FileWatch::until(const std::function<bool()>& answer, std::chrono::milliseconds limit, int pidfd) const {
    auto end = std::chrono::steady_clock::now() + limit;
    std::array<char, 4096> drained{};
    while (true) {
        while (::read(notes_.get(), drained.data(), drained.size()) > 0) {
        }
        if (answer()) return true;
        auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        std::array<pollfd, 2> events{pollfd{notes_.get(), POLLIN, 0}, pollfd{pidfd, POLLIN, 0}};
        ::poll(events.data(), pidfd < 0 ? 1 : 2, static_cast<int>(left.count()));
        if (pidfd >= 0 && (events[1].revents & POLLIN) != 0) return answer();
    }
}

}  // namespace vark::test
