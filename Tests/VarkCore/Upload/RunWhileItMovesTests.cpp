#include "VarkCore/Upload/RunWhileItMoves.h"

#include <gtest/gtest.h>

#include "Tests/Support/TestLoop.h"
#include "VarkCore/Upload/ByteCounter.h"

namespace vark {
namespace {

using test::TestLoop;

/// Moves one byte at each of the given seconds, and ends at the last.
Task<std::string> moveAt(std::vector<int> seconds, ByteCounter* moved) {
    int now = 0;
    for (const int second : seconds) {
        co_await sleepFor(std::chrono::seconds(second - now));
        now = second;
        moved->set(moved->value() + 1);
    }
    co_return "moved";
}

Task<std::string> endInSpiteOfCancellation() {
    try {
        co_await sleepFor(std::chrono::hours(1));
    } catch (const CancellationError&) {
    }
    co_return "ended all the same";
}

class MovingWork : public testing::Test {
  public:
    TestLoop loop;
    ByteCounter moved;

    Task<std::string> watched(std::int64_t length, Task<std::string> work) {
        return runWhileItMoves(length, StallWatch{}, [this] { return moved.value(); }, std::move(work));
    }
    std::string outcome(std::int64_t length, Task<std::string> work) {
        try {
            return loop.run(watched(length, std::move(work)));
        } catch (const VarkAPIError& error) {
            return error.errorDescription();
        }
    }
    double secondsGone() const { return inSeconds(loop.clock.now().time_since_epoch()); }
};

TEST_F(MovingWork, MayTakeAsLongAsItLikesWhileItMoves) {
    EXPECT_EQ(outcome(10, moveAt({45, 90, 134, 179, 220}, &moved)), "moved");
    EXPECT_EQ(secondsGone(), 220);
}

TEST_F(MovingWork, IsGivenUpAtTheFirstLookPastTheLimit) {
    EXPECT_EQ(outcome(10, moveAt({100}, &moved)), "The vark stopped taking this piece; sending it again.");
    EXPECT_EQ(secondsGone(), 46);
}

TEST_F(MovingWork, HasTheLongerLimitOnceAllBytesHaveGone) {
    moved.set(10);
    EXPECT_EQ(outcome(10, moveAt({1000}, &moved)),
              "The vark took every byte and did not answer; sending it again.");
    EXPECT_EQ(secondsGone(), 181);
}

TEST_F(MovingWork, ThatSucceedsInTheMomentOfGivingUpHasSucceeded) {
    EXPECT_EQ(outcome(10, endInSpiteOfCancellation()), "ended all the same");
}

TEST_F(MovingWork, ThatIsCancelledIsNoStall) {
    const TaskHandle<std::string> handle = loop.start(watched(10, moveAt({1000}, &moved)));
    loop.advance(std::chrono::seconds(20));
    handle.cancel();
    loop.settle();
    EXPECT_THROW(handle.result(), CancellationError);
    EXPECT_EQ(loop.clock.nextDeadline(), std::nullopt);
}

}  // namespace
}  // namespace vark
