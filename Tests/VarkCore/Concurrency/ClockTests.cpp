#include <gtest/gtest.h>

#include "Tests/Support/TestLoop.h"
#include "VarkCore/Concurrency/TaskGroup.h"

namespace vark {
namespace {

using namespace std::chrono_literals;
using test::TestLoop;

TEST(SystemClock, WakesEverySleeperAtItsTimeAndNotBefore) {
    SerialExecutor executor;
    SystemClock clock;
    auto measured = [](Duration duration) -> Task<bool> {
        Clock* mine = co_await thisClock();
        Instant before = mine->now();
        co_await sleepFor(duration);
        co_return mine->now() - before >= duration;
    };
    TaskScope scope(executor, clock);
    std::vector<TaskHandle<bool>> handles;
    for (int i = 50; i > 0; --i)
        handles.push_back(scope.start(measured(i * 100us)));
    executor.runUntil([&] { return scope.live() == 0; });
    for (const TaskHandle<bool>& handle : handles)
        EXPECT_TRUE(handle.result());
}

Task<int> slow(Duration duration) {
    co_await sleepFor(duration);
    co_return 5;
}

TEST(WithTimeout, GivesTheResultOrTheTimeOutAndLeavesNothingBehind) {
    TestLoop loop;
    EXPECT_EQ(loop.run(withTimeout(2s, slow(1s))), 5);
    EXPECT_THROW(loop.run(withTimeout(1s, slow(2s))), TimeoutError);
    EXPECT_FALSE(loop.clock.nextDeadline());
}

}  // namespace
}  // namespace vark
