#pragma once

#include <algorithm>
#include <deque>
#include <utility>

#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark {

/// A number of slots that tasks take and give back, served strictly first come, first served. Shared by
/// reference; any thread. A wait is not cancellable: a cancelled task stays suspended until a slot comes, so
/// every wait is paired with a signal on all ways out (`SlotPermit` does that).
class AsyncSemaphore {
  public:
    /// A negative count is none.
    explicit AsyncSemaphore(int slots) : available_(std::max(slots, 0)) {}
    AsyncSemaphore(const AsyncSemaphore&) = delete;
    AsyncSemaphore& operator=(const AsyncSemaphore&) = delete;

    class SlotWait final : public LeafWait {
      public:
        explicit SlotWait(AsyncSemaphore& semaphore) : semaphore_(semaphore) {}
        template <class Promise>
        bool await_suspend(std::coroutine_handle<Promise> handle) {
            return suspend(handle, [this](const TaskContext&) {
                if (semaphore_.takeOrEnqueue(*this)) complete();
            });
        }
        void await_resume() const noexcept {}

      private:
        friend class AsyncSemaphore;
        AsyncSemaphore& semaphore_;
    };

    /// Returns once a slot is the caller's.
    [[nodiscard]] SlotWait wait() { return SlotWait(*this); }
    /// Gives a slot back, or adds one. It passes straight to whoever waits longest.
    void signal();

  private:
    bool takeOrEnqueue(SlotWait& wait);

    Mutex lock_;
    int available_ VARK_GUARDED_BY(lock_);
    std::deque<SlotWait*> waiters_ VARK_GUARDED_BY(lock_);
};

/// A slot that is given back at the end of the block. Adopts the slot of a `wait` that has returned.
class SlotPermit {
  public:
    explicit SlotPermit(AsyncSemaphore& semaphore) : semaphore_(&semaphore) {}
    SlotPermit(SlotPermit&& other) noexcept : semaphore_(std::exchange(other.semaphore_, nullptr)) {}
    SlotPermit& operator=(SlotPermit&&) = delete;
    ~SlotPermit() {
        if (semaphore_ != nullptr) semaphore_->signal();
    }

  private:
    AsyncSemaphore* semaphore_;
};

}  // namespace vark
