#include "VarkPlatform/Linux/InotifyFolderWatch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "VarkCore/Foundation/Paths.h"
#include "VarkPlatform/Linux/SignalsBlocked.h"

namespace vark {
namespace {

constexpr std::uint32_t itself = IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::uint32_t inFolder = itself | IN_CREATE | IN_DELETE | IN_MOVE | IN_CLOSE_WRITE;
constexpr std::uint32_t untilItComes = itself | IN_CREATE | IN_MOVED_TO;

/// The kernel tells of a file's close just before it lets go of the locks of a process that was killed:
/// whoever tries for one at once may come too early, and nothing else would call it again.
constexpr int untilLocksAreFree = 100;  // Milliseconds.
constexpr int betweenBlindLooks = 1'000;

constexpr int noWatch = -1;

bool isMissing(int errorNumber) {
    return errorNumber == ENOENT || errorNumber == ENOTDIR;
}

}  // namespace

InotifyFolderWatch::~InotifyFolderWatch() {
    if (!thread_.joinable()) return;
    eventfd_write(end_.get(), 1);
    thread_.join();
}

void InotifyFolderWatch::start(std::filesystem::path folder, std::function<void()> changed) {
    folder_ = standardised(folder);
    changed_ = std::move(changed);
    notes_ = Descriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    end_ = Descriptor(eventfd(0, EFD_CLOEXEC));
    if (!end_) throw FileError("Could not watch", folder_, errno);
    place();
    const SignalsBlocked blocked;
    thread_ = std::thread([this] { watch(); });
}

/// Puts the watch on the folder, or else on the nearest folder above it that is there.
void InotifyFolderWatch::place() {
    if (!notes_) notes_ = Descriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (watched_ != noWatch) inotify_rm_watch(notes_.get(), watched_);
    awaited_.clear();
    std::filesystem::path place = folder_;
    while (true) {
        watched_ = inotify_add_watch(notes_.get(), place.c_str(), awaited_.empty() ? inFolder : untilItComes);
        if (watched_ != noWatch) {
            std::error_code unknown;
            const std::filesystem::path next = place / awaited_;
            // It may have come while the watch was not there yet.
            if (awaited_.empty() || !std::filesystem::is_directory(next, unknown)) return;
            inotify_rm_watch(notes_.get(), watched_);
            awaited_.clear();
            place = folder_;
        } else if (isMissing(errno) && place != place.root_path()) {
            awaited_ = place.filename().string();
            place = place.parent_path();
        } else {
            return;
        }
    }
}

InotifyFolderWatch::News InotifyFolderWatch::readNews() const {
    News news;
    alignas(inotify_event) std::array<char, 16'384> notes;
    while (true) {
        const ssize_t length = read(notes_.get(), notes.data(), notes.size());
        if (length <= 0) return news;
        for (ssize_t at = 0; at < length;) {
            inotify_event event;
            std::memcpy(&event, notes.data() + at, sizeof event);
            const char* const name = notes.data() + at + sizeof event;
            at += static_cast<ssize_t>(sizeof event + event.len);
            const bool wasOverrun = (event.mask & IN_Q_OVERFLOW) != 0;
            if (event.wd != watched_ && !wasOverrun) continue;
            const bool isOfItself = (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) != 0;
            const bool isAwaited = !awaited_.empty() && event.len > 0 && awaited_ == name;
            if (isOfItself || isAwaited || wasOverrun) news.isLost = true;
            if (awaited_.empty()) news.isAny = true;
            if ((event.mask & IN_CLOSE_WRITE) != 0 || wasOverrun) news.hasClosed = true;
        }
    }
}

void InotifyFolderWatch::watch() {
    bool isToBeToldAgain = false;
    while (true) {
        int longest = isToBeToldAgain ? untilLocksAreFree : -1;
        if (watched_ == noWatch) longest = betweenBlindLooks;
        std::array sources{pollfd{end_.get(), POLLIN, 0}, pollfd{notes_.get(), POLLIN, 0}};
        const int happened = poll(sources.data(), sources.size(), longest);
        if (happened < 0) continue;
        if (sources[0].revents != 0) return;
        if (happened == 0) {
            isToBeToldAgain = false;
            if (watched_ == noWatch) place();
            changed_();
            continue;
        }
        const News news = readNews();
        if (news.isLost) place();
        if (news.hasClosed) isToBeToldAgain = true;
        if (news.isAny || (news.isLost && awaited_.empty())) changed_();
    }
}

}  // namespace vark
