#include "VarkCore/Concurrency/Clock.h"

#include <cassert>

namespace vark {

void Clock::arm(Timer& timer) {
    Locked hold(lock_);
    auto [place, added] = timers_.emplace(timer.deadline, &timer);
    assert(added);
    if (place == timers_.begin()) earliestChanged();
}

bool Clock::disarm(Timer& timer) noexcept {
    Locked hold(lock_);
    return timers_.erase({timer.deadline, &timer}) == 1;
}

Timer* Clock::takeDue(Instant now) {
    if (timers_.empty() || timers_.begin()->first > now) return nullptr;
    Timer* timer = timers_.begin()->second;
    timers_.erase(timers_.begin());
    return timer;
}

SystemClock::~SystemClock() {
    std::thread thread;
    {
        Locked hold(lock_);
        assert(timers_.empty() && "a clock outlives the tasks that sleep on it");
        ended_ = true;
        thread = std::move(thread_);
        changed_.notify_one();
    }
    if (thread.joinable()) thread.join();
}

void SystemClock::earliestChanged() {
    if (!thread_.joinable()) thread_ = std::thread([this] { fireWhatIsDue(); });
    changed_.notify_one();
}

void SystemClock::fireWhatIsDue() {
    while (true) {
        Timer* due = nullptr;
        {
            Locked hold(lock_);
            while (!ended_) {
                due = takeDue(now());
                if (due != nullptr) break;
                if (timers_.empty()) {
                    changed_.wait(lock_);
                } else {
                    Instant earliest = timers_.begin()->first;
                    changed_.wait_until(lock_, earliest);
                }
            }
            if (ended_) return;
        }
        due->fired();
    }
}

Instant ManualClock::now() const noexcept {
    Locked hold(lock_);
    return now_;
}

std::optional<Instant> ManualClock::nextDeadline() const {
    Locked hold(lock_);
    if (timers_.empty()) return std::nullopt;
    return timers_.begin()->first;
}

void ManualClock::moveTo(Instant instant) {
    while (true) {
        Timer* due = nullptr;
        {
            Locked hold(lock_);
            if (instant > now_) now_ = instant;
            due = takeDue(now_);
        }
        if (due == nullptr) return;
        due->fired();
    }
}

}  // namespace vark
