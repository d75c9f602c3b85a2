#include "VarkPlatform/Linux/TimerClockWatch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <limits>

#include "VarkPlatform/Linux/SignalsBlocked.h"

namespace vark {
namespace {

/// For a moment that never comes: only the cancelling counts.
bool arm(const Descriptor& timer) {
    itimerspec never{};
    never.it_value.tv_sec = std::numeric_limits<std::int32_t>::max();
    constexpr int flags = TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET;
    return timerfd_settime(timer.get(), flags, &never, nullptr) == 0;
}

}  // namespace

TimerClockWatch::~TimerClockWatch() {
    if (!thread_.joinable()) return;
    eventfd_write(end_.get(), 1);
    thread_.join();
}

void TimerClockWatch::start(std::function<void()> jumped) {
    timer_ = Descriptor(timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC | TFD_NONBLOCK));
    end_ = Descriptor(eventfd(0, EFD_CLOEXEC));
    if (!timer_ || !end_ || !arm(timer_)) throw FileError("Could not watch", "the clock", errno);
    const SignalsBlocked blocked;
    thread_ = std::thread([this, call = std::move(jumped)] { watch(call); });
}

void TimerClockWatch::watch(const std::function<void()>& jumped) const {
    while (true) {
        std::array sources{pollfd{end_.get(), POLLIN, 0}, pollfd{timer_.get(), POLLIN, 0}};
        if (poll(sources.data(), sources.size(), -1) < 0) continue;
        if (sources[0].revents != 0) return;
        std::uint64_t ignored = 0;
        // A read that fails with ECANCELED has taken the news, and the timer goes on to watch.
        static_cast<void>(!read(timer_.get(), &ignored, sizeof ignored));
        jumped();
    }
}

}  // namespace vark
