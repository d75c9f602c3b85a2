#include <gtest/gtest.h>

#include "Tests/Support/TestLoop.h"
#include "VarkCore/Concurrency/TaskGroup.h"

namespace vark {
namespace {

using namespace std::chrono_literals;
using test::TestLoop;

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
