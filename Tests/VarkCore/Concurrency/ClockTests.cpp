#include <gtest/gtest.h>

#include "Tests/Support/TestLoop.h"
#include "VarkCore/Concurrency/TaskGroup.h"

namespace vark {
namespace {

using namespace std::chrono_literals;
using test::TestLoop;

Task<void> noteAfter(Duration duration, std::vector<int>* notes, int note) {
    co_await sleepFor(duration);
    notes->push_back(note);
}

TEST(ManualClock, WakesSleepersInTheOrderOfTheirDeadlinesOneAtATime) {
    TestLoop loop;
    std::vector<int> notes;
    loop.start(noteAfter(3s, &notes, 3));
    loop.start(noteAfter(1s, &notes, 1));
    loop.start(noteAfter(2s, &notes, 2));
    auto chain = [](std::vector<int>* list) -> Task<void> {
        co_await noteAfter(500ms, list, 10);
        co_await noteAfter(1s, list, 11);
    };
    loop.start(chain(&notes));
    loop.settle();
    EXPECT_TRUE(notes.empty());
    loop.advance(3s);
    EXPECT_EQ(notes, (std::vector<int>{10, 1, 11, 2, 3}));
}

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
