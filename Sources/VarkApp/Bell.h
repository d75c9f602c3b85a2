#pragma once

#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark::app {

/// Rung from any thread, and heard by one task of its executor: between an inotify and whoever looks when it
/// rings. A ring that nobody waits for is kept for the next wait, and several are one.
class Bell {
  public:
    Bell(Executor& executor, Clock& clock) : scope_(executor, clock) {}

    void ring();
    /// Returns at the next ring, or when the time is up.
    Task<void> waitAtMost(Duration longest);

  private:
    Mutex lock_;
    bool isRung_ VARK_GUARDED_BY(lock_) = false;
    TaskHandle<void> sleep_ VARK_GUARDED_BY(lock_);
    TaskScope scope_;
};

}  // namespace vark::app
