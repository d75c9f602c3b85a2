#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
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

TEST(Task, AMillionReadyAwaitsNeedNoStack) {
    TestLoop loop;
    EXPECT_EQ(loop.run(sumOfReadyAwaits(1'000'000)), 1'000'000);
}

TEST(Task, ReturnsThroughDeepNestingWithoutGrowingTheStack) {
    TestLoop loop;
    EXPECT_EQ(loop.run(nested(100'000)), 100'000);
}

Task<int> fails() {
    co_await yieldNow();
    throw std::runtime_error("no");
}

Task<std::string> catches() {
    try {
        co_await fails();
    } catch (const std::runtime_error& error) {
        co_return error.what();
    }
    co_return "nothing";
}

TEST(Task, FailurePropagatesToWhoeverAwaits) {
    TestLoop loop;
    EXPECT_EQ(loop.run(catches()), "no");
    EXPECT_THROW(loop.run(fails()), std::runtime_error);
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

Task<bool> hopsAndComesBack(SerialExecutor* other, SerialExecutor* home) {
    struct Away {
        static Task<bool> run(SerialExecutor* there) {
            co_await hopTo(*there);
            co_return there->isCurrent();
        }
    };
    bool wasThere = co_await Away::run(other);
    co_return wasThere && home->isCurrent();
}

TEST(Task, ACallerGoesOnWhereItWasAfterItsCalleeHopped) {
    TestLoop loop;
    EngineThread thread;
    TaskHandle<bool> handle = loop.start(hopsAndComesBack(&thread.executor(), &loop.executor));
    loop.executor.runUntil([&] { return handle.done(); });
    EXPECT_TRUE(handle.result());
}

Task<int> slow(int value) {
    co_await sleepFor(std::chrono::seconds(5));
    co_return value;
}

Task<int> awaits(TaskHandle<int> handle) {
    co_return co_await handle.value();
}

TEST(TaskHandle, IsAwaitedBySeveralAndAfterItsEnd) {
    TestLoop loop;
    TaskHandle<int> handle = loop.start(slow(7));
    TaskHandle<int> first = loop.start(awaits(handle));
    TaskHandle<int> second = loop.start(awaits(handle));
    loop.settle();
    EXPECT_FALSE(first.done());
    loop.advance(std::chrono::seconds(5));
    EXPECT_EQ(first.result() + second.result() + loop.run(awaits(handle)), 21);
}

TEST(TaskHandle, ACancelledWaiterLeavesTheTaskRunning) {
    TestLoop loop;
    TaskHandle<int> handle = loop.start(slow(7));
    TaskHandle<int> waiter = loop.start(awaits(handle));
    loop.settle();
    waiter.cancel();
    loop.settle();
    EXPECT_THROW(waiter.result(), CancellationError);
    EXPECT_EQ(loop.run(awaits(handle)), 7);
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

TEST(TaskScope, ItsEndCancelsAndAwaitsWhatItStarted) {
    auto note = std::make_shared<std::string>();
    TestLoop loop;
    {
        TaskScope scope(loop.executor, loop.clock);
        scope.start(noteTheEnd(note));
        scope.start(noteTheEnd(note));
        loop.settle();
        EXPECT_EQ(scope.live(), 2U);
    }
    EXPECT_EQ(*note, "cancelledcancelled");
    EXPECT_EQ(note.use_count(), 1);
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

TEST(TaskScope, EndsTasksOfAnotherThreadFromThisOne) {
    SystemClock clock;
    EngineThread thread;
    auto note = std::make_shared<std::string>();
    {
        TaskScope scope(thread.executor(), clock);
        for (int i = 0; i < 20; ++i)
            scope.start(noteTheEnd(note));
    }
    EXPECT_EQ(note->size(), 20 * std::string("cancelled").size());
}

struct Owner {
    int beats = 0;
};

Task<void> beat(std::weak_ptr<Owner> weak) {
    while (true) {
        co_await sleepFor(std::chrono::milliseconds(500));
        std::shared_ptr<Owner> owner = weak.lock();
        if (!owner) co_return;
        ++owner->beats;
    }
}

TEST(Task, APeriodicTaskEndsAtTheNextWakeWhenItsOwnerIsGone) {
    TestLoop loop;
    auto owner = std::make_shared<Owner>();
    TaskHandle<void> ticker = loop.start(beat(owner));
    loop.advance(std::chrono::milliseconds(1700));
    EXPECT_EQ(owner->beats, 3);
    owner.reset();
    EXPECT_FALSE(ticker.done());
    loop.advance(std::chrono::milliseconds(300));
    EXPECT_TRUE(ticker.done());
}

TEST(BlockingPool, RunsElsewhereAndBringsResultsAndFailuresBack) {
    TestLoop loop;
    auto work = [](TestLoop* world) -> Task<std::string> {
        bool elsewhere = co_await world->pool.run([world] { return !world->executor.isCurrent(); });
        std::string text = elsewhere ? "elsewhere " : "here ";
        try {
            co_await world->pool.run([]() -> int { throw std::runtime_error("failed"); });
        } catch (const std::runtime_error& error) {
            text += error.what();
        }
        co_return world->executor.isCurrent() ? text : "not back";
    };
    EXPECT_EQ(loop.run(work(&loop)), "elsewhere failed");
}

TEST(BlockingPool, ASystemWithoutThreadsFailsTheWorkAndLeavesNothingOfItBehind) {
    const pid_t child = fork();
    if (child == 0) {
        const rlimit none{0, 0};
        bool isWhole = setrlimit(RLIMIT_NPROC, &none) == 0 && (getuid() != 0 || setuid(65534) == 0);
        SerialExecutor executor;
        ManualClock clock;
        BlockingPool pool(1);
        auto work = [](BlockingPool* threads) -> Task<bool> {
            try {
                co_await threads->run([] {});
            } catch (const std::runtime_error& error) {
                co_return std::string_view(error.what()).starts_with("The system allows no further thread.");
            }
            co_return false;
        };
        isWhole = isWhole && run(executor, clock, work(&pool)) && pool.isIdle();
        _exit(isWhole ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(BlockingPool, WorkBeyondTheBoundWaitsItsTurnAndAllOfItRuns) {
    TestLoop loop;
    BlockingPool pool(2);
    std::atomic<int> running = 0;
    std::atomic<int> most = 0;
    std::atomic<int> ran = 0;
    auto one = [](BlockingPool* threads, std::function<void()> f) -> Task<void> { co_await threads->run(f); };
    std::function<void()> body = [&] {
        int now = ++running;
        int seen = most;
        while (now > seen && !most.compare_exchange_weak(seen, now)) {
        }
        ++ran;
        --running;
    };
    std::vector<TaskHandle<void>> handles;
    for (int i = 0; i < 500; ++i)
        handles.push_back(loop.start(one(&pool, body)));
    loop.executor.runUntil([&] { return loop.scope.live() == 0; });
    EXPECT_EQ(ran, 500);
    EXPECT_LE(most, 2);
}

}  // namespace
}  // namespace vark
