#pragma once

#include <condition_variable>
#include <deque>
#include <optional>
#include <thread>
#include <vector>

#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark {

/// Threads for work that blocks: files, hashes, locks. A thread is added when all are busy, up to the bound;
/// what comes beyond that waits its turn. Outlives the tasks that use it; any thread may call.
class BlockingPool {
  public:
    explicit BlockingPool(std::size_t mostThreads) : mostThreads_(mostThreads) {}
    ~BlockingPool();
    BlockingPool(const BlockingPool&) = delete;
    BlockingPool& operator=(const BlockingPool&) = delete;

    /// `co_await pool.run(f)`: `f` on a thread of the pool, its result or failure back here. The wait ends
    /// when `f` does and not before: cancellation does not cut it short, so `f` has its own way of being
    /// told.
    template <class F>
    auto run(F f) {
        return Run<F>(*this, std::move(f));
    }

    /// Blocks until everything that was handed in so far has ended and has been told to whoever waits for it.
    void waitUntilIdle();
    bool isIdle() const;

  private:
    class Job {
      public:
        virtual void execute() noexcept = 0;

      protected:
        ~Job() = default;
    };

    template <class F>
    class Run final : public LeafWait, public Job {
      public:
        using Result = std::invoke_result_t<F&>;
        Run(BlockingPool& pool, F f) : pool_(pool), f_(std::move(f)) {}
        template <class Promise>
        bool await_suspend(std::coroutine_handle<Promise> handle) {
            return suspend(handle, [this](const TaskContext&) { pool_.submit(*this); });
        }
        Result await_resume() { return outcome_.take(); }

      private:
        void execute() noexcept override {
            try {
                if constexpr (std::is_void_v<Result>) {
                    f_();
                    outcome_.setValue();
                } else {
                    outcome_.setValue(f_());
                }
            } catch (...) {
                outcome_.setFailure(std::current_exception());
            }
            complete();
        }

        BlockingPool& pool_;
        F f_;
        Outcome<Result> outcome_;
    };

    void submit(Job& job);
    void addThread() VARK_REQUIRES(lock_);
    void work();

    const std::size_t mostThreads_;
    mutable Mutex lock_;
    std::condition_variable_any submitted_;
    std::condition_variable_any idle_;
    std::deque<Job*> jobs_ VARK_GUARDED_BY(lock_);
    std::vector<std::thread> threads_ VARK_GUARDED_BY(lock_);
    std::size_t waiting_ VARK_GUARDED_BY(lock_) = 0;
    std::size_t unfinished_ VARK_GUARDED_BY(lock_) = 0;
    bool ended_ VARK_GUARDED_BY(lock_) = false;
};

}  // namespace vark
