#include <gtest/gtest.h>

#include <numeric>
#include <stdexcept>

#include "Tests/Support/TestLoop.h"
#include "VarkCore/Concurrency/TaskGroup.h"

namespace vark {
namespace {

using namespace std::chrono_literals;
using test::TestLoop;

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

}  // namespace
}  // namespace vark
