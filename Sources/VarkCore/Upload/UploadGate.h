#pragma once

#include <algorithm>
#include <utility>

#include "VarkCore/Concurrency/AsyncSemaphore.h"
#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark {

/// How many pieces of work may run at once in this process. Shared by reference; outlives the work; any
/// thread. Waiting for a slot is not cancellable.
class UploadGate {
  public:
    /// A negative count is none.
    explicit UploadGate(int slots) : slots_(slots) {}

    /// The work's own result or failure, after the slot has been given back.
    template <class T>
    Task<T> run(Task<T> work) {
        co_await slots_.wait();
        const SlotPermit permit(slots_);
        const Running running(*this);
        co_return co_await std::move(work);
    }

    /// The most that ever ran at once.
    int highWaterMark() const {
        const Locked hold(lock_);
        return peak_;
    }

  private:
    class Running {
      public:
        explicit Running(UploadGate& gate) : gate_(gate) {
            const Locked hold(gate_.lock_);
            ++gate_.inFlight_;
            gate_.peak_ = std::max(gate_.peak_, gate_.inFlight_);
        }
        Running(const Running&) = delete;
        Running& operator=(const Running&) = delete;
        ~Running() {
            const Locked hold(gate_.lock_);
            --gate_.inFlight_;
        }

      private:
        UploadGate& gate_;
    };

    AsyncSemaphore slots_;
    mutable Mutex lock_;
    int inFlight_ VARK_GUARDED_BY(lock_) = 0;
    int peak_ VARK_GUARDED_BY(lock_) = 0;
};

}  // namespace vark
