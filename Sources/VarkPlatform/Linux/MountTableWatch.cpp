#include "VarkPlatform/Linux/MountTableWatch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>

namespace vark {

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
    while (true) {
        // The kernel notes with the open table which change was told last, so none is missed between two
        // calls.
        std::array sources{pollfd{end_.get(), POLLIN, 0}, pollfd{table_.get(), POLLPRI, 0}};
        if (poll(sources.data(), sources.size(), -1) < 0) continue;
        if (sources[0].revents != 0) return;
        changed();
    }
}

}  // namespace vark
