#include "VarkPlatform/Linux/Volumes/MountTableWatch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>

namespace vark {

namespace {

/// What tells one card from another may be known only a moment after it was mounted, and no second change of
/// the table says so.
constexpr int untilAChangeHasSettled = 1'000;  // Milliseconds.

}  // namespace

MountTableWatch::MountTableWatch(const std::filesystem::path& table, std::function<void()> changed)
    // Changes count from here on.
    : table_(open(table.c_str(), O_RDONLY | O_CLOEXEC)), end_(eventfd(0, EFD_CLOEXEC)) {
    if (!table_ || !end_) throw FileError("Could not watch", table, errno);
    thread_ = std::thread([this, call = std::move(changed)] { watch(call); });
}

MountTableWatch::~MountTableWatch() {
    eventfd_write(end_.get(), 1);
    thread_.join();
}

void MountTableWatch::watch(const std::function<void()>& changed) const {
    bool isToBeToldAgain = false;
    while (true) {
        // The kernel notes with the open table which change was told last, so none is missed between two
        // calls.
        std::array sources{pollfd{end_.get(), POLLIN, 0}, pollfd{table_.get(), POLLPRI, 0}};
        const int happened =
            poll(sources.data(), sources.size(), isToBeToldAgain ? untilAChangeHasSettled : -1);
        if (happened < 0) continue;
        if (sources[0].revents != 0) return;
        isToBeToldAgain = happened > 0;
        changed();
    }
}

}  // namespace vark
