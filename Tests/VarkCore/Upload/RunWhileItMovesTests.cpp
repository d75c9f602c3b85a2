#include "VarkCore/Upload/RunWhileItMoves.h"

#include <gtest/gtest.h>

#include "Tests/Support/TestLoop.h"
#include "VarkCore/Upload/ByteCounter.h"

namespace vark {
namespace {

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
    test::TestLoop loop;
    ByteCounter moved;

    Task<std::string> watched(Task<std::string> work) {
        return runWhileItMoves(10, StallWatch{}, [this] { return moved.value(); }, std::move(work));
    }
};

TEST_F(MovingWork, IsGivenUpAtTheFirstLookPastTheLimit) {
    struct Case {
        Task<std::string> work;
        std::int64_t movedBefore;
        std::string end;
        double after;
    };
    Case cases[] = {
        {moveAt({45, 90, 134, 179, 220}, &moved), 0, "moved", 220},
        {moveAt({100}, &moved), 0, "The vark stopped taking this piece; sending it again.", 46},
        {moveAt({1000}, &moved), 10, "The vark took every byte and did not answer; sending it again.", 181},
        {endInSpiteOfCancellation(), 0, "ended all the same", 46},
    };
    for (Case& c : cases) {
        moved.set(c.movedBefore);
        const Instant start = loop.clock.now();
        try {
            EXPECT_EQ(loop.run(watched(std::move(c.work))), c.end);
        } catch (const VarkAPIError& error) {
            EXPECT_EQ(error.errorDescription(), c.end);
        }
        EXPECT_EQ(inSeconds(loop.clock.now() - start), c.after);
    }
}

}  // namespace
}  // namespace vark
