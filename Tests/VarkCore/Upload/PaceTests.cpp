#include <gtest/gtest.h>

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

    bucket.setBytesPerSecond(1);
    EXPECT_EQ(bucket.delay(1, Date{200}), 0) << "a new rate pays no old debt";
    bucket.setBytesPerSecond(-5);
    EXPECT_EQ(bucket.delay(1'000'000, Date{200}), 0) << "no rate is no limit";
}

}  // namespace
}  // namespace vark
