#include <gtest/gtest.h>

#include <numeric>
#include <stdexcept>

#include "Tests/Support/TestLoop.h"
#include "VarkCore/Concurrency/TaskGroup.h"

namespace vark {
namespace {

using namespace std::chrono_literals;
using test::TestLoop;

Task<int> after(Duration duration, int value) {
    co_await sleepFor(duration);
    co_return value;
}

TEST(TaskGroup, GivesResultsInTheOrderOfTheirEnds) {
    TestLoop loop;
    auto body = [](TaskGroup<int>& group) -> Task<std::vector<int>> {
        group.add(after(3s, 3));
        group.add(after(1s, 1));
        group.add(after(2s, 2));
        std::vector<int> order;
        while (std::optional<int> next = co_await group.next())
            order.push_back(*next);
        co_return order;
    };
    EXPECT_EQ(loop.run(withGroup<int>(body)), (std::vector<int>{1, 2, 3}));
}

Task<void> child(int index, std::vector<std::string>* ends) {
    std::exception_ptr failure;
    try {
        if (index == 2) {
            co_await sleepFor(1s);
            throw std::runtime_error("the third");
        }
        co_await sleepFor(10s);
    } catch (const CancellationError&) {
        failure = std::current_exception();
    }
    co_await shielded([]() -> Task<void> { co_await sleepFor(1s); }());
    ends->push_back(failure ? "cancelled" : "ended");
    if (failure) std::rethrow_exception(failure);
}

TEST(TaskGroup, TheFirstFailureCancelsTheRestAwaitsThemAndIsRethrown) {
    TestLoop loop;
    std::vector<std::string> ends;
    auto body = [&ends](TaskGroup<void>& group) -> Task<void> {
        for (int i = 0; i < 5; ++i)
            group.add(child(i, &ends));
        while (co_await group.next()) {
        }
    };
    try {
        loop.run(withGroup<void>(body));
        FAIL() << "it did not fail";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "the third");
    }
    EXPECT_EQ(ends, (std::vector<std::string>(4, "cancelled")));
}

TEST(ForEachBounded, StartsInOrderAndNeverMoreThanTheWidth) {
    TestLoop loop;
    int running = 0;
    int most = 0;
    std::vector<int> started;
    auto make = [&](int index) -> Task<void> {
        started.push_back(index);
        most = std::max(most, ++running);
        co_await sleepFor(std::chrono::milliseconds(index % 7 + 1));
        --running;
    };
    std::vector<int> indexes(200);
    std::iota(indexes.begin(), indexes.end(), 0);
    loop.run(forEachBounded(indexes, 6, make));
    EXPECT_EQ(most, 6);
    EXPECT_EQ(started, indexes);
}

TEST(TaskGroup, AHundredThousandChildrenAreFlat) {
    TestLoop loop;
    auto one = [](int value) -> Task<int> {
        co_await yieldNow();
        co_return value;
    };
    auto body = [&](TaskGroup<int>& group) -> Task<long> {
        for (int i = 0; i < 100'000; ++i)
            group.add(one(1));
        long sum = 0;
        while (std::optional<int> next = co_await group.next())
            sum += *next;
        co_return sum;
    };
    EXPECT_EQ(loop.run(withGroup<int>(body)), 100'000);
}

}  // namespace
}  // namespace vark
