#include "Hosts/CLI/Display/StreamSink.h"

#include <limits.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "VarkCore/Concurrency/Task.h"

namespace vark::cli {
namespace {

bool isRegularFile(int descriptor) {
    struct stat values{};
    return fstat(descriptor, &values) == 0 && S_ISREG(values.st_mode);
}

}  // namespace

StreamSink::StreamSink(int to, std::string name, std::stop_token cancelled)
    : to_(to),
      name_(std::move(name)),
      cancelled_(std::move(cancelled)),
      bell_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      isFile_(isRegularFile(to)) {
    if (!bell_) throw FileError("Could not write", name_, errno);
}

void StreamSink::take(std::int64_t at, std::string_view bytes) {
    // Another way may begin from the beginning; what has gone is not sent twice.
    bytes.remove_prefix(std::min(bytes.size(), static_cast<std::size_t>(gone_ - at)));
    while (!bytes.empty()) {
        waitUntilItTakes();
        // A pipe that can be written to has room for so much, so this does not wait.
        const std::size_t count = isFile_ ? bytes.size() : std::min<std::size_t>(bytes.size(), PIPE_BUF);
        const ssize_t written = write(to_, bytes.data(), count);
        if (written < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (written < 0) throw FileError("Could not write", name_, errno);
        hash_.add(bytes.substr(0, static_cast<std::size_t>(written)));
        gone_ += written;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void StreamSink::waitUntilItTakes() {
    const auto ring = [this] { eventfd_write(bell_.get(), 1); };
    const std::stop_callback whenStopped(cancelled_, ring);
    pollfd waited[] = {{to_, POLLOUT, 0}, {bell_.get(), POLLIN, 0}};
    while (poll(waited, std::size(waited), -1) < 0) {
        if (errno != EINTR) throw FileError("Could not write", name_, errno);
    }
    if (cancelled_.stop_requested()) throw CancellationError();
}

}  // namespace vark::cli
