#pragma once

#include <atomic>
#include <coroutine>
#include <optional>
#include <stop_token>
#include <utility>

#include "VarkCore/Concurrency/Executor.h"

namespace vark {

class Clock;

/// What a task hands down to everything that it awaits. Owned by what started the task (a scope's record, a
/// group, a shield); the frames below only point to it.
struct TaskContext {
    std::stop_token token;
    Clock* clock = nullptr;
};

/// Resumes coroutines one after another on the stack of whoever resumes the first. A coroutine never resumes
/// another one directly: it names the next and returns here, so a million awaits that are ready at once need
/// no more stack than one, in every kind of build.
class Driver {
  public:
    static void run(std::coroutine_handle<> handle) noexcept {
        Driver driver;
        Driver* outer = std::exchange(current_, &driver);
        while (handle) {
            driver.next_ = nullptr;
            handle.resume();
            handle = driver.next_;
        }
        current_ = outer;
    }
    /// Only from within `await_suspend`: what the driver on this thread resumes once that has returned.
    static void resumeNext(std::coroutine_handle<> handle) noexcept { current_->next_ = handle; }

  private:
    std::coroutine_handle<> next_;
    static thread_local constinit Driver* current_;
};

/// What the promise of each of our coroutines begins with.
class PromiseBase : public Work {
  public:
    const TaskContext* context = nullptr;

    /// Who goes on when this coroutine has ended, and where. `returnToCaller` stands at the very end.
    void callFrom(std::coroutine_handle<> caller, const TaskContext* callersContext) noexcept {
        caller_ = caller;
        home_ = Executor::current();
        context = callersContext;
    }
    void returnToCaller() noexcept {
        if (Executor::current() == home_) {
            Driver::resumeNext(caller_);
        } else {
            home_->post(*this);
        }
    }
    void run() noexcept override {
        // The caller destroys this promise.
        std::coroutine_handle<> caller = caller_;
        Driver::run(caller);
    }

  protected:
    ~PromiseBase() = default;

  private:
    std::coroutine_handle<> caller_;
    Executor* home_ = nullptr;
};

/// The base of every wait at the bottom of a stack of tasks: a sleep, a slot, a transfer. It goes on after
/// two arrivals, the completion and the end of `await_suspend`; so a completion that comes while the wait is
/// still being set up, from a stop callback inside its own constructor for one, can never resume a coroutine
/// too early.
///
/// A derived class defines `start()`, which sets up the wait, and calls `complete()` exactly once, from any
/// thread. Between the two it may be destroyed by nobody.
class LeafWait : public Work {
  public:
    bool await_ready() const noexcept { return false; }

    void run() noexcept override { Driver::run(handle_); }

  protected:
    LeafWait() = default;
    ~LeafWait() = default;

    template <class Promise, class Start>
    bool suspend(std::coroutine_handle<Promise> handle, Start&& start) {
        handle_ = handle;
        home_ = Executor::current();
        std::forward<Start>(start)(*handle.promise().context);
        return !arrivedLast();
    }
    void complete() noexcept {
        if (arrivedLast()) home_->post(*this);
    }

  private:
    bool arrivedLast() noexcept { return missing_.fetch_sub(1, std::memory_order_acq_rel) == 1; }

    std::coroutine_handle<> handle_;
    Executor* home_ = nullptr;
    std::atomic<int> missing_ = 2;
};

/// A `LeafWait` that a stop ends early. The derived class defines `onStop()`, which asks for the end; it may
/// call `complete()` at once or leave that to whoever completes the wait anyway. It must not block.
class StoppableWait : public LeafWait {
  protected:
    /// The last thing in `start`: from here on a stop may come, or has come already.
    void watch(const std::stop_token& token) {
        if (token.stop_possible()) stop_.emplace(token, OnStop{this});
    }
    /// The first thing in `await_resume`: from here on no stop comes any more.
    void unwatch() noexcept { stop_.reset(); }

    virtual void onStop() noexcept = 0;
    ~StoppableWait() = default;

  private:
    struct OnStop {
        StoppableWait* wait;
        void operator()() const noexcept { wait->onStop(); }
    };
    std::optional<std::stop_callback<OnStop>> stop_;
};

}  // namespace vark
