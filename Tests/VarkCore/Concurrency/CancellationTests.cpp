#include <gtest/gtest.h>

#include "Tests/Support/TestLoop.h"
#include "VarkCore/Concurrency/TaskGroup.h"

namespace vark {
namespace {

using test::TestLoop;

Task<void> sleeping() {
    co_await sleepFor(std::chrono::hours(1));
}
Task<void> sleepingInAGroup() {
    co_await withGroup<void>([](TaskGroup<void>& group) -> Task<void> {
        group.add(sleeping());
        group.add(sleeping());
        while (co_await group.next()) {
        }
    });
}
Task<void> checking() {
    co_await yieldNow();
    co_await checkCancellation();
}
Task<void> sleepingDeep(int depth) {
    if (depth == 0) co_return co_await sleeping();
    co_await sleepingDeep(depth - 1);
}

TEST(Cancellation, ReachesEveryKindOfWaitAndIsNeverAnotherFailure) {
    struct Case {
        const char* name;
        Task<void> (*make)();
    };
    for (const Case& one :
         {Case{"a sleep", sleeping}, Case{"children of a group", sleepingInAGroup}, Case{"a check", checking},
          Case{"a deep callee", [] { return sleepingDeep(50); }},
          Case{"a time-out", [] { return withTimeout(std::chrono::hours(2), sleeping()); }}}) {
        SCOPED_TRACE(one.name);
        TestLoop loop;
        TaskHandle<void> early = loop.start(one.make());
        early.cancel();  // Before it has begun.
        loop.settle();
        EXPECT_TRUE(early.done());
        EXPECT_THROW(early.result(), CancellationError);

        TaskHandle<void> late = loop.start(one.make());
        loop.executor.runReady();
        if (late.done()) continue;
        late.cancel();
        loop.settle();
        EXPECT_TRUE(late.done());
        EXPECT_THROW(late.result(), CancellationError);
        EXPECT_FALSE(loop.clock.nextDeadline()) << "a timer was left behind";
    }
}

TEST(Cancellation, FromAnotherThreadRacesWithTheWakeAndLosesNothing) {
    SystemClock clock;
    EngineThread thread;
    auto nap = [](int microseconds) -> Task<void> {
        co_await sleepFor(std::chrono::microseconds(microseconds));
    };
    TaskScope scope(thread.executor(), clock);
    std::vector<TaskHandle<void>> handles;
    for (int i = 0; i < 2000; ++i) {
        handles.push_back(scope.start(nap(i % 300)));
        if (i % 3 == 0) handles[static_cast<std::size_t>(i / 2)].cancel();
    }
    for (const TaskHandle<void>& handle : handles)
        handle.cancel();
    scope.endAll();
    for (const TaskHandle<void>& handle : handles)
        EXPECT_TRUE(handle.done());
}

}  // namespace
}  // namespace vark
