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

TEST_F(EngineIdle, PublishesTwiceASecondAgainOnceSomethingMoves) {
    vark->chunkTime = 1s;
    engine->start(false);
    ASSERT_TRUE(isAsleep());
    add({write("a.mov", 10'000)});
    std::vector<double> rates;
    for (int half = 0; half < 24; ++half) {
        loop.advance(500ms);
        rates.push_back(engine->overall().rate);
    }
    EXPECT_EQ(rates[0], 0);
    // Half of each chunk is told as it begins.
    EXPECT_GT(rates[1], 0);
    EXPECT_NEAR(rates[23], 300, 40);
    engine->setHold("sleep", "Asleep");
    loop.advance(500ms);
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

TEST_F(EngineIdle, HoursThatDifferFromDayToDayAreAskedForWhenTheyEnd) {
    // At night, and on Thursday in the afternoon too.
    engine->setOfficeHours([](Date date) {
        const Calendar calendar("UTC");
        if (calendar.minuteOfDay(date) < 6 * 60) return OfficeHours{true, 0, 6 * 60};
        return calendar.weekday(date) == 5 ? OfficeHours{true, 15 * 60, 16 * 60} : OfficeHours{};
    });
    std::vector<std::pair<Duration, bool>> changes;
    for (Duration hour = 0h; hour < 48h; hour += 1h) {
        const bool isHeld = engine->hold().has_value();
        if (changes.empty() || changes.back().second != isHeld) changes.emplace_back(hour + 12h, isHeld);
        loop.advance(1h);
    }
    const std::vector<std::pair<Duration, bool>> expected = {
        {12h, false}, {24h, true}, {30h, false}, {39h, true}, {40h, false}, {48h, true}, {54h, false}};
    EXPECT_EQ(changes, expected);
}

}  // namespace
}  // namespace vark::test
