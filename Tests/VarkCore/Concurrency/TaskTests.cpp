#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Tests/Support/TestLoop.h"

namespace vark {
namespace {

using test::TestLoop;

Task<int> ready(int value) {
    co_return value;
}

Task<long> sumOfReadyAwaits(int rounds) {
    long sum = 0;
    for (int i = 0; i < rounds; ++i)
        sum += co_await ready(1);
    co_return sum;
}

Task<int> nested(int depth) {
    if (depth == 0) co_return 0;
    co_return 1 + co_await nested(depth - 1);
}

TEST(Task, AMillionReadyAwaitsAndDeepNestingNeedNoStack) {
    TestLoop loop;
    EXPECT_EQ(loop.run(sumOfReadyAwaits(1'000'000)), 1'000'000);
    EXPECT_EQ(loop.run(nested(100'000)), 100'000);
}

Task<void> holds(std::shared_ptr<int> value) {
    co_await yieldNow();
    ++*value;
}

TEST(Task, DroppedBeforeItBeganFreesItsArgumentsAndNeverRuns) {
    auto value = std::make_shared<int>(0);
    {
        Task<void> task = holds(value);
    }
    EXPECT_EQ(value.use_count(), 1);
    EXPECT_EQ(*value, 0);
}

Task<int> slow(int value) {
    co_await sleepFor(std::chrono::seconds(5));
    co_return value;
}

Task<int> awaits(TaskHandle<int> handle) {
    co_return co_await handle.value();
}

TEST(TaskHandle, IsAwaitedBySeveralOneOfWhichMayGiveUpAndAfterItsEnd) {
    TestLoop loop;
    TaskHandle<int> handle = loop.start(slow(7));
    TaskHandle<int> first = loop.start(awaits(handle));
    TaskHandle<int> second = loop.start(awaits(handle));
    loop.settle();
    second.cancel();
    loop.settle();
    EXPECT_THROW(second.result(), CancellationError);
    EXPECT_FALSE(first.done());
    loop.advance(std::chrono::seconds(5));
    EXPECT_EQ(first.result() + loop.run(awaits(handle)), 14);
}

Task<void> noteTheEnd(std::shared_ptr<std::string> note) {
    std::exception_ptr failure;
    try {
        co_await sleepFor(std::chrono::hours(1));
    } catch (const CancellationError&) {
        failure = std::current_exception();
    }
    // Clean-up that awaits, though the task has been cancelled.
    co_await shielded([]() -> Task<void> { co_await yieldNow(); }());
    *note += failure ? "cancelled" : "slept";
}

Task<void> startsAnotherAtItsEnd(TaskScope* scope, std::shared_ptr<std::string> note) {
    co_await noteTheEnd(note);
    scope->start(noteTheEnd(note));
}

TEST(TaskScope, WhatATaskStartsWhileTheScopeEndsIsCancelledFromItsBeginning) {
    auto note = std::make_shared<std::string>();
    TestLoop loop;
    {
        TaskScope scope(loop.executor, loop.clock);
        scope.start(startsAnotherAtItsEnd(&scope, note));
        loop.settle();
    }
    EXPECT_EQ(*note, "cancelledcancelled");
}

TEST(BlockingPool, WorkBeyondTheBoundWaitsItsTurnAndAllOfItRuns) {
    TestLoop loop;
    BlockingPool pool(2);
    std::atomic<int> running = 0;
    std::atomic<int> ran = 0;
    std::atomic<bool> tooMany = false;
    std::function<void()> body = [&] {
        if (++running > 2) tooMany = true;
        ++ran;
        --running;
    };
    auto one = [](BlockingPool* threads, std::function<void()> f) -> Task<void> { co_await threads->run(f); };
    for (int i = 0; i < 500; ++i)
        loop.start(one(&pool, body));
    loop.executor.runUntil([&] { return loop.scope.live() == 0; });
    EXPECT_EQ(ran, 500);
    EXPECT_FALSE(tooMany);
}

}  // namespace
}  // namespace vark
