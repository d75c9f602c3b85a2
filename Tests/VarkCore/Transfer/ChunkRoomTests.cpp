#include "VarkCore/Transfer/ChunkRoom.h"

#include <gtest/gtest.h>

#include "Tests/Support/TestLoop.h"

namespace vark::test {
namespace {

constexpr std::int64_t megabyte = 1'000'000;

Task<void> enter(ChunkRoom* room, std::int64_t length, int* onTheWay) {
    co_await room->enter(length);
    ++*onTheWay;
}

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
        int onTheWay = 0;
        const auto leave = [&] {
            --onTheWay;
            room.leave(one.chunk);
            loop.settle();
        };
        for (int number = 0; number < 6; ++number)
            loop.start(enter(&room, one.chunk, &onTheWay));
        loop.settle();
        EXPECT_EQ(onTheWay, 1) << "before the first has arrived nothing is known";
        const Instant now = loop.clock.now();
        const std::chrono::duration<double> way(static_cast<double>(one.chunk) / one.bytesPerSecond);
        room.arrived(one.chunk, now - std::chrono::duration_cast<Duration>(way), now);
        leave();
        EXPECT_EQ(onTheWay, one.most);
        room.followsTheRate = false;
        leave();
        EXPECT_EQ(onTheWay, 4);
    }
}

}  // namespace
}  // namespace vark::test
