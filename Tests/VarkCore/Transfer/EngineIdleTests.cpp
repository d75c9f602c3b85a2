#include "EngineFixture.h"

namespace vark::test {
namespace {

using namespace std::chrono_literals;

/// A timer that is armed is a wake-up to come, and there is no other way for the engine to wake by itself.
class EngineIdle : public EngineTest {
  protected:
    bool isAsleep() {
        loop.settle();
        return !loop.clock.nextDeadline();
    }
    Duration untilItWakes() {
        loop.settle();
        return *loop.clock.nextDeadline() - loop.clock.now();
    }
};

TEST_F(EngineIdle, NothingWakesItWhileNothingMoves) {
    const std::filesystem::path file = write("long.mov", 10'000);
    engine->start(true);
    EXPECT_TRUE(isAsleep()) << "with nothing to do";
    add({file});
    loop.advance(2s);
    engine->pause();
    loop.advance(30s);
    EXPECT_TRUE(isAsleep()) << "while it is paused";
    engine->resume();
    loop.advance(1s);
    network->set(false);
    loop.advance(30s);
    EXPECT_TRUE(isAsleep()) << "while it waits for the network";
    network->set(true);
    loop.advance(60s);
    EXPECT_EQ(engine->overall().filesVerified, 1);
    EXPECT_TRUE(isAsleep()) << "when all has settled";
    EXPECT_EQ(engine->overall().rate, 0);
}

TEST_F(EngineIdle, SleepsToTheNextOfficeHourAndLooksAgainWhenTheClockJumps) {
    // 12:00 on a Wednesday.
    engine->start(false);
    engine->setOfficeHours({true, 13 * 60, 18 * 60});
    EXPECT_EQ(untilItWakes(), 1h);
    loop.advance(1h);
    EXPECT_EQ(engine->hold(), "Waiting until 18:00: outside office hours only");
    EXPECT_EQ(untilItWakes(), 5h);
    // A machine that slept, or somebody who sets the clock.
    setAhead += 4 * 3600;
    clockWatch->jump();
    EXPECT_EQ(untilItWakes(), 1h);
    setAhead += 2 * 3600;
    clockWatch->jump();
    loop.settle();
    EXPECT_EQ(engine->hold(), std::nullopt);
    // Midnight: another day may have other hours.
    EXPECT_EQ(untilItWakes(), 5h);
    engine->setOfficeHours(OfficeHours{});
    EXPECT_TRUE(isAsleep());
}

}  // namespace
}  // namespace vark::test
