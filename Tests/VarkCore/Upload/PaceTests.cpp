#include <gtest/gtest.h>

#include "VarkCore/Upload/StallWatch.h"
#include "VarkCore/Upload/TokenBucket.h"

namespace vark {
namespace {

TEST(TokenBucket, SharesTheRateAndGivesAQuarterOfASecondFree) {
    TokenBucket bucket(1000);
    EXPECT_EQ(bucket.delay(1000, Date{100}), 0);
    EXPECT_EQ(bucket.delay(1000, Date{100}), 0.75);
    EXPECT_EQ(bucket.delay(500, Date{100}), 1.75);
    EXPECT_EQ(bucket.delay(0, Date{100}), 0);
    EXPECT_EQ(bucket.delay(1, Date{100}), 2.25);
    EXPECT_EQ(bucket.delay(1000, Date{200}), 0);
    EXPECT_EQ(bucket.delay(1, Date{200}), 0.75);
}

TEST(TokenBucket, ANewRatePaysNoOldDebt) {
    TokenBucket bucket(1);
    bucket.delay(1'000'000, Date{100});
    EXPECT_GT(bucket.delay(1, Date{100}), 900'000);
    bucket.setBytesPerSecond(1);
    EXPECT_EQ(bucket.delay(1, Date{100}), 0);
    bucket.setBytesPerSecond(-5);
    EXPECT_EQ(bucket.bytesPerSecond(), 0);
    EXPECT_EQ(bucket.delay(1'000'000, Date{100}), 0);
}

TEST(StallWatch, WaitsLongerOnceEveryByteHasGone) {
    struct Case {
        std::int64_t sent;
        double still;
        bool givesUp;
    };
    for (const Case& each : {Case{0, 45, false}, Case{99, 45.01, true}, Case{100, 45.01, false},
                             Case{100, 180, false}, Case{100, 180.01, true}, Case{101, 180, false}}) {
        EXPECT_EQ(StallWatch().giveUp(each.sent, 100, each.still), each.givesUp)
            << each.sent << " " << each.still;
    }
}

}  // namespace
}  // namespace vark
