#pragma once

#include <stdexcept>

#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/Concurrency/TaskScope.h"

namespace vark::test {

/// The world that a test of tasks lives in, on the test's own thread: an executor, a clock that moves only
/// when it is told to, a pool, and a scope. No real time passes.
class TestLoop {
  public:
    SerialExecutor executor;
    ManualClock clock;
    BlockingPool pool{8};

    /// Runs everything that can run without time moving, what blocks in the pool included.
    void settle() {
        while (true) {
            executor.runReady();
            pool.waitUntilIdle();
            if (executor.runReady() == 0 && pool.isIdle()) return;
        }
    }
    /// Moves time, one deadline after another, and settles at each.
    void advance(Duration duration) {
        settle();
        Instant target = clock.now() + duration;
        while (std::optional<Instant> next = clock.nextDeadline()) {
            if (*next > target) break;
            clock.moveTo(*next);
            settle();
        }
        clock.moveTo(target);
        settle();
    }
    template <class T>
    TaskHandle<T> start(Task<T> task) {
        return scope.start(std::move(task));
    }
    /// The task's result, with time moved as far as it takes. A task that waits for what can never come fails
    /// the test instead of hanging it.
    template <class T>
    T run(Task<T> task) {
        TaskHandle<T> handle = scope.start(std::move(task));
        settle();
        while (!handle.done()) {
            std::optional<Instant> next = clock.nextDeadline();
            if (!next) {
                handle.cancel();
                settle();
                throw std::logic_error("the task waits for something that nothing will bring");
            }
            clock.moveTo(*next);
            settle();
        }
        return handle.result();
    }

    TaskScope scope{executor, clock};
};

}  // namespace vark::test
