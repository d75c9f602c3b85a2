#pragma once

#include <chrono>
#include <condition_variable>
#include <set>
#include <thread>
#include <utility>

#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark {

using Instant = std::chrono::steady_clock::time_point;
using Duration = std::chrono::nanoseconds;

/// Seconds as the records and policies of this system hold them.
inline Duration seconds(double count) {
    return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(count));
}
inline double inSeconds(Duration duration) {
    return std::chrono::duration<double>(duration).count();
}

/// A moment that somebody waits for. A part of the wait; armed with at most one clock at a time.
class Timer {
  public:
    /// Called once, by the clock, without its lock.
    virtual void fired() noexcept = 0;
    Instant deadline;

  protected:
    ~Timer() = default;
};

/// Steady time and the alarms on it. Any thread may call. Outlives every task that sleeps on it. What time of
/// day it is stands in a `WallClock`, which is passed in beside it.
class Clock {
  public:
    virtual Instant now() const noexcept = 0;
    void arm(Timer& timer);
    /// Answers whether the timer was still armed; if so it will not fire any more.
    bool disarm(Timer& timer) noexcept;

  protected:
    Clock() = default;
    ~Clock() = default;
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;

    /// Called when the earliest deadline has changed, with the lock held.
    virtual void earliestChanged() VARK_REQUIRES(lock_) {}
    /// Takes out the earliest timer if its deadline has come.
    Timer* takeDue(Instant now) VARK_REQUIRES(lock_);

    mutable Mutex lock_;
    std::set<std::pair<Instant, Timer*>> timers_ VARK_GUARDED_BY(lock_);
};

/// The machine's steady clock. Its thread starts with the first alarm.
class SystemClock final : public Clock {
  public:
    SystemClock() = default;
    ~SystemClock();
    Instant now() const noexcept override { return std::chrono::steady_clock::now(); }

  private:
    void earliestChanged() override VARK_REQUIRES(lock_);
    void fireWhatIsDue();

    std::condition_variable_any changed_;
    bool ended_ VARK_GUARDED_BY(lock_) = false;
    std::thread thread_ VARK_GUARDED_BY(lock_);
};

/// Time that stands still until it is moved: for tests.
class ManualClock final : public Clock {
  public:
    Instant now() const noexcept override;
    std::optional<Instant> nextDeadline() const;
    /// Sets the time and fires what has become due, in the order of the deadlines.
    void moveTo(Instant instant);

  private:
    Instant now_ VARK_GUARDED_BY(lock_){};
};

namespace detail {
class Sleep final : public StoppableWait, public Timer {
  public:
    explicit Sleep(Duration duration) : duration_(duration) {}
    template <class Promise>
    bool await_suspend(std::coroutine_handle<Promise> handle) {
        return suspend(handle, [this](const TaskContext& context) {
            clock_ = context.clock;
            deadline = clock_->now() + duration_;
            clock_->arm(*this);
            watch(context.token);
        });
    }
    void await_resume() {
        unwatch();
        if (cancelled_) throw CancellationError();
    }

  private:
    void fired() noexcept override { complete(); }
    void onStop() noexcept override {
        if (!clock_->disarm(*this)) return;
        cancelled_ = true;
        complete();
    }

    Duration duration_;
    Clock* clock_ = nullptr;
    bool cancelled_ = false;
};
}  // namespace detail

/// Suspends for at least `duration` of the task's clock. A cancelled sleep throws `CancellationError`.
inline detail::Sleep sleepFor(Duration duration) {
    return detail::Sleep(duration);
}

}  // namespace vark
