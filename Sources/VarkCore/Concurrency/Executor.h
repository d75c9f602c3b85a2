#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark {

/// One thing to run on an executor. It is a part of whatever waits to be run, so that posting allocates
/// nothing; it must stay alive until `run` has been called.
class Work {
  public:
    virtual void run() noexcept = 0;

  protected:
    Work() = default;
    ~Work() = default;
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

  private:
    friend class SerialExecutor;
    Work* nextWork_ = nullptr;
};

/// Where code runs: one thing at a time, in the order of posting. Outlives every task that runs on it.
class Executor {
  public:
    /// From any thread. Never runs the work inside the call.
    virtual void post(Work& work) noexcept = 0;
    /// Whether the calling thread is the one that this executor runs on.
    virtual bool isCurrent() const noexcept = 0;
    /// Runs work until `done` answers true; `done` is asked again after each piece of work. Only on the
    /// executor's own thread, and there also from within work that is running.
    virtual void runUntil(const std::function<bool()>& done) = 0;
    /// Lets a `runUntil` that sleeps ask its `done` again. From any thread.
    virtual void wake() noexcept = 0;

    /// The executor whose work is running on this thread; null outside of one.
    static Executor* current() noexcept;

  protected:
    Executor() = default;
    ~Executor() = default;
    Executor(const Executor&) = delete;
    Executor& operator=(const Executor&) = delete;

    /// Sets `current` for the length of one piece of work.
    class Entered {
      public:
        explicit Entered(Executor& executor) noexcept;
        ~Entered();
        Entered(const Entered&) = delete;
        Entered& operator=(const Entered&) = delete;

      private:
        Executor* outer_;
    };
};

/// An executor that is driven by the thread that made it. May be entered again from within its own work; what
/// is queued then runs in the inner loop, and nothing is stranded.
class SerialExecutor final : public Executor {
  public:
    SerialExecutor() = default;
    ~SerialExecutor();

    void post(Work& work) noexcept override;
    bool isCurrent() const noexcept override { return std::this_thread::get_id() == owner_; }
    void runUntil(const std::function<bool()>& done) override;
    void wake() noexcept override;

    /// Runs what is queued, and what that queues, until nothing is left. Answers how many pieces ran.
    std::size_t runReady();
    /// The same for some time, which the last piece may exceed: at least one runs. Answers whether more is
    /// left.
    bool runFor(std::chrono::nanoseconds time);
    /// From any thread.
    bool hasWork() const;

    /// For whoever drives this from a loop of another kind: `arrived` is called each time that work comes to
    /// an empty queue, also from within work that is running; at once if there is some already. On the thread
    /// that posts, with this executor locked, so it only wakes that loop. Null ends it: no call is under way
    /// after.
    void setArrival(std::function<void()> arrived);

  private:
    Work* pop() noexcept;
    void execute(Work& work) noexcept;

    const std::thread::id owner_ = std::this_thread::get_id();
    mutable Mutex lock_;
    std::condition_variable_any arrived_;
    Work* first_ VARK_GUARDED_BY(lock_) = nullptr;
    Work* last_ VARK_GUARDED_BY(lock_) = nullptr;
    bool woken_ VARK_GUARDED_BY(lock_) = false;
    std::function<void()> arrival_ VARK_GUARDED_BY(lock_);
};

/// A thread of its own that drives a `SerialExecutor` until this object ends. End the tasks on it first.
class EngineThread {
  public:
    EngineThread();
    ~EngineThread();
    EngineThread(const EngineThread&) = delete;
    EngineThread& operator=(const EngineThread&) = delete;

    SerialExecutor& executor() { return *executor_; }

  private:
    std::atomic<bool> ended_ = false;
    SerialExecutor* executor_ = nullptr;  // Lives on the thread's stack.
    std::thread thread_;
};

}  // namespace vark
