#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <semaphore>

#include "VarkPlatform/Linux/TimerClockWatch.h"

namespace vark::test {
namespace {

/// Sets the clock to the time that it shows, which is a jump all the same.
bool setTheClock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return clock_settime(CLOCK_REALTIME, &now) == 0;
}

TEST(ClockWatch, HearsEachJumpOfTheClock) {
    std::counting_semaphore<> jumps(0);
    TimerClockWatch watch;
    watch.start([&] { jumps.release(); });
    if (!setTheClock()) GTEST_SKIP() << "THE CLOCK CANNOT BE SET HERE: that a jump is heard is NOT tested.";
    EXPECT_TRUE(jumps.try_acquire_for(std::chrono::minutes(1)));
    ASSERT_TRUE(setTheClock());
    EXPECT_TRUE(jumps.try_acquire_for(std::chrono::minutes(1)));
}

}  // namespace
}  // namespace vark::test
