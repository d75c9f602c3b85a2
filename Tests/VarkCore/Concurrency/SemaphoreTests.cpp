#include <gtest/gtest.h>

#include "Tests/Support/TestLoop.h"
#include "VarkCore/Concurrency/AsyncSemaphore.h"

namespace vark {
namespace {

using test::TestLoop;

Task<void> takeAndNote(AsyncSemaphore* semaphore, std::vector<int>* order, int id) {
    co_await semaphore->wait();
    order->push_back(id);
}

TEST(AsyncSemaphore, ServesWaitersStrictlyFirstComeFirstServed) {
    TestLoop loop;
    AsyncSemaphore semaphore(0);
    std::vector<int> order;
    for (int i = 0; i < 5; ++i)
        loop.start(takeAndNote(&semaphore, &order, i));
    loop.settle();
    EXPECT_TRUE(order.empty());
    for (int i = 0; i < 5; ++i)
        semaphore.signal();
    loop.settle();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST(AsyncSemaphore, ASignalWithNobodyWaitingAddsASlotEvenBeyondTheStart) {
    TestLoop loop;
    AsyncSemaphore semaphore(-3);
    semaphore.signal();
    semaphore.signal();
    std::vector<int> order;
    for (int i = 0; i < 3; ++i)
        loop.start(takeAndNote(&semaphore, &order, i));
    loop.settle();
    EXPECT_EQ(order.size(), 2U);
    semaphore.signal();
    loop.settle();
    EXPECT_EQ(order.size(), 3U);
}

TEST(AsyncSemaphore, ACancelledWaiterStaysUntilItsSlotComes) {
    TestLoop loop;
    AsyncSemaphore semaphore(0);
    std::vector<int> order;
    TaskHandle<void> handle = loop.start(takeAndNote(&semaphore, &order, 1));
    loop.settle();
    handle.cancel();
    loop.settle();
    EXPECT_FALSE(handle.done());
    semaphore.signal();
    loop.settle();
    EXPECT_TRUE(handle.done());
}

TEST(AsyncSemaphore, HoldsItsBoundWhenManyThreadsTakeAndGive) {
    SystemClock clock;
    AsyncSemaphore semaphore(3);
    std::atomic<int> inside = 0;
    std::atomic<int> rounds = 0;
    std::atomic<bool> broken = false;
    auto work = [](AsyncSemaphore* slots, std::atomic<int>* in, std::atomic<int>* done,
                   std::atomic<bool>* wrong) -> Task<void> {
        for (int i = 0; i < 200; ++i) {
            co_await slots->wait();
            SlotPermit permit(*slots);
            if (++*in > 3) *wrong = true;
            co_await yieldNow();
            --*in;
            ++*done;
        }
    };
    {
        EngineThread threads[3];
        std::vector<std::unique_ptr<TaskScope>> scopes;
        for (EngineThread& thread : threads) {
            scopes.push_back(std::make_unique<TaskScope>(thread.executor(), clock));
        }
        for (int i = 0; i < 24; ++i) {
            scopes[static_cast<std::size_t>(i % 3)]->start(work(&semaphore, &inside, &rounds, &broken));
        }
        scopes.clear();
    }
    EXPECT_EQ(rounds, 3 * 8 * 200);
    EXPECT_FALSE(broken);
}

}  // namespace
}  // namespace vark
