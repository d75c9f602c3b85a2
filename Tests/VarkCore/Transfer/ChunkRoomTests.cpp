#include "VarkCore/Transfer/ChunkRoom.h"

#include <gtest/gtest.h>

#include "Tests/Support/TestLoop.h"

namespace vark::test {
namespace {

constexpr std::int64_t megabyte = 1'000'000;

/// A link whose bytes are shared by all chunks that are on it, and which has a way of some milliseconds.
class Link {
  public:
    Link(TestLoop& loop, ChunkRoom& room, double bytesPerSecond)
        : loop_(loop), room_(room), bytesPerSecond_(bytesPerSecond) {}

    Task<void> send(std::int64_t length) {
        co_await room_.enter(length);
        const ChunkPlace place(room_, length);
        const Instant begun = loop_.clock.now();
        most_ = std::max(most_, ++onTheWay_);
        double left = static_cast<double>(length);
        co_await sleepFor(std::chrono::milliseconds(20));
        while (left > 0) {
            co_await sleepFor(std::chrono::milliseconds(100));
            left -= bytesPerSecond_ / 10 / onTheWay_;
        }
        --onTheWay_;
        room_.arrived(length, begun, loop_.clock.now());
    }
    /// The most that were on the way at once from here on.
    int mostOf(int count, std::int64_t length) {
        most_ = 0;
        for (int index = 0; index < count; ++index)
            loop_.start(send(length));
        while (loop_.scope.live() > 0)
            loop_.advance(std::chrono::seconds(1));
        return most_;
    }

  private:
    TestLoop& loop_;
    ChunkRoom& room_;
    const double bytesPerSecond_;
    int onTheWay_ = 0;
    int most_ = 0;
};

TEST(ChunkRoom, LetsAsManyOnTheWayAsArriveInTenSeconds) {
    struct Case {
        const char* what;
        double bytesPerSecond;
        std::int64_t limit;
        std::int64_t chunk;
        int most;
    };
    // clang-format off
    const Case cases[] = {
        {"a slow link", 1e6, 0, 8 * megabyte, 1},
        {"a link too slow for one", 1e5, 0, 8 * megabyte, 1},
        {"two of these arrive in time", 2e6, 0, 8 * megabyte, 2},
        {"a fast link", 1e8, 0, 8 * megabyte, 4},
        {"a slow link for small chunks", 1e6, 0, megabyte, 4},
        {"a fast link that is not to be filled", 1e8, megabyte, 8 * megabyte, 1},
    };
    // clang-format on
    for (const Case& one : cases) {
        SCOPED_TRACE(one.what);
        TestLoop loop;
        ChunkRoom room(4);
        room.followsTheRate = true;
        room.limit = one.limit;
        Link link(loop, room, one.bytesPerSecond);
        EXPECT_EQ(link.mostOf(2, one.chunk), 1) << "before the first has arrived nothing is known";
        EXPECT_EQ(link.mostOf(12, one.chunk), one.most);
        room.followsTheRate = false;
        EXPECT_EQ(link.mostOf(12, one.chunk), 4);
    }
}

}  // namespace
}  // namespace vark::test
