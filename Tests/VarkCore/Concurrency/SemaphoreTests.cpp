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

}  // namespace
}  // namespace vark
