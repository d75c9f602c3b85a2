#include <gtest/gtest.h>

#include <list>

#include "Tests/Support/TestLoop.h"
#include "VarkCore/Concurrency/AsyncSemaphore.h"

namespace vark {
namespace {

using test::TestLoop;

Task<void> takeAndNote(AsyncSemaphore* semaphore, std::vector<int>* order, int id) {
    co_await semaphore->wait();
    order->push_back(id);
}

TEST(AsyncSemaphore, ServesWaitersFirstComeFirstServedTheCancelledToo) {
    TestLoop loop;
    AsyncSemaphore semaphore(-3);  // None.
    std::vector<int> order;
    std::vector<TaskHandle<void>> waiters;
    semaphore.signal();
    for (int i = 0; i < 5; ++i)
        waiters.push_back(loop.start(takeAndNote(&semaphore, &order, i)));
    waiters[2].cancel();
    loop.settle();
    EXPECT_EQ(order, (std::vector<int>{0}));
    EXPECT_FALSE(waiters[2].done()) << "it stays until its slot comes";
    for (int i = 1; i < 5; ++i)
        semaphore.signal();
    loop.settle();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
}

struct Rounds {
    AsyncSemaphore semaphore{3};
    std::atomic<int> inside = 0;
    std::atomic<int> done = 0;
    std::atomic<bool> tooMany = false;
};

Task<void> takeAndGive(Rounds* rounds) {
    for (int i = 0; i < 200; ++i) {
        co_await rounds->semaphore.wait();
        SlotPermit permit(rounds->semaphore);
        if (++rounds->inside > 3) rounds->tooMany = true;
        co_await yieldNow();
        --rounds->inside;
        ++rounds->done;
    }
}

TEST(AsyncSemaphore, HoldsItsBoundWhenManyThreadsTakeAndGive) {
    SystemClock clock;
    Rounds rounds;
    {
        EngineThread threads[3];
        std::list<TaskScope> scopes;
        for (EngineThread& thread : threads) {
            TaskScope& scope = scopes.emplace_back(thread.executor(), clock);
            for (int i = 0; i < 8; ++i)
                scope.start(takeAndGive(&rounds));
        }
    }
    EXPECT_EQ(rounds.done, 3 * 8 * 200);
    EXPECT_FALSE(rounds.tooMany);
}

}  // namespace
}  // namespace vark
