#include "VarkCore/Foundation/Date.h"

#include <gtest/gtest.h>

#include <limits>
#include <thread>

#include "VarkCore/Foundation/Calendar.h"
#include "VarkCore/Foundation/UUID.h"

namespace vark {
namespace {

Date at(std::string_view text) {
    return dateFromISO8601(text).value();
}

TEST(Date, IsWrittenInWholeSecondsOfUTC) {
    struct Case {
        double since1970;
        const char* text;
    };
    for (const Case& each : {Case{0, "1970-01-01T00:00:00Z"}, Case{1740994867.999, "2025-03-03T09:41:07Z"},
                             Case{951782400, "2000-02-29T00:00:00Z"}, Case{-0.5, "1969-12-31T23:59:59Z"},
                             Case{1e300, "9999-12-31T23:59:59Z"}, Case{-1e300, "0000-01-01T00:00:00Z"},
                             Case{std::numeric_limits<double>::quiet_NaN(), "1970-01-01T00:00:00Z"}}) {
        EXPECT_EQ(iso8601(Date::fromSince1970(each.since1970)), each.text);
    }
}

TEST(Date, ReadsEveryTimeZoneDesignator) {
    for (const char* text : {"2025-03-03T09:41:07Z", "2025-03-03T19:41:07+10:00", "2025-03-03T04:11:07-05:30",
                             "2025-03-03T19:41:07+1000", "2025-03-03T19:41:07+10"}) {
        EXPECT_EQ(dateFromISO8601(text), Date::fromSince1970(1740994867)) << text;
    }
}

TEST(Date, RefusesWhatIsNoDate) {
    for (const char* text : {"", "2025-03-03", "2025-03-03T09:41:07", "2025-03-03T09:41:07.5Z",
                             "2025-02-29T09:41:07Z", "2025-13-03T09:41:07Z", "2025-03-03T24:00:00Z",
                             "2025-03-03T09:60:07Z", "2025-03-03 09:41:07Z", "2025-03-03T09:41:07Zx",
                             "2025-03-03T09:41:07+", "2025-03-03T09:41:07+25:00", "+025-03-03T09:41:07Z"}) {
        EXPECT_EQ(dateFromISO8601(text), std::nullopt) << text;
    }
}

TEST(Calendar, KnowsDayAndMinuteInItsZone) {
    struct Case {
        const char* zone;
        const char* date;
        int weekday;
        int minute;
    };
    for (const Case& each :
         {Case{"UTC", "1970-01-01T00:00:00Z", 5, 0}, Case{"UTC", "1969-12-27T23:59:59Z", 7, 1439},
          Case{"Australia/Melbourne", "2025-03-02T13:00:00Z", 2, 0},
          Case{"Australia/Melbourne", "2025-07-02T13:59:59Z", 4, 23 * 60 + 59},
          Case{"Nowhere/AtAll", "2025-03-02T13:00:00Z", 1, 13 * 60}}) {
        const Calendar calendar(each.zone);
        EXPECT_EQ(calendar.weekday(at(each.date)), each.weekday) << each.zone << each.date;
        EXPECT_EQ(calendar.minuteOfDay(at(each.date)), each.minute) << each.zone << each.date;
    }
}

TEST(Calendar, FindsTheMomentOfTheDayAcrossAChangeOfSummerTime) {
    struct Case {
        const char* zone;
        const char* date;
        int minutes;
        const char* moment;
    };
    for (const Case& each :
         {Case{"UTC", "2025-03-03T12:00:00Z", 1050, "2025-03-03T17:30:00Z"},
          // Summer time ends at three in the morning of 6 April and begins at two on 5 October.
          Case{"Australia/Melbourne", "2025-04-05T22:00:00Z", 1050, "2025-04-06T07:30:00Z"},
          Case{"Australia/Melbourne", "2025-04-05T22:00:00Z", 0, "2025-04-05T13:00:00Z"},
          Case{"Australia/Melbourne", "2025-10-04T20:00:00Z", 1050, "2025-10-05T06:30:00Z"},
          // There is no midnight on this day: clocks jump from 24:00 to 01:00.
          Case{"America/Santiago", "2024-09-08T15:00:00Z", 0, "2024-09-08T04:00:00Z"}}) {
        EXPECT_EQ(iso8601(Calendar(each.zone).startOfDay(at(each.date), each.minutes)), each.moment)
            << each.zone << each.date;
    }
}

TEST(Calendar, WordsDatesOnManyThreadsAtOnce) {
    const Calendar melbourne("Australia/Melbourne");
    const Calendar utc("UTC");
    auto work = [&] {
        for (int round = 0; round < 200; ++round) {
            ASSERT_EQ(melbourne.format(at("2025-03-02T22:41:07Z"), "d MMM yyyy, HH:mm"), "3 Mar 2025, 09:41");
            ASSERT_EQ(utc.format(at("2025-03-02T22:41:07Z"), "HH:mm"), "22:41");
        }
    };
    std::vector<std::jthread> threads;
    for (int index = 0; index < 4; ++index)
        threads.emplace_back(work);
}

TEST(UUID, IsReadInEitherCaseAndWrittenInUpperCase) {
    const std::optional<UUID> id = UUID::parse("0a1b2c3d-4e5f-6071-8293-A4B5C6D7E8F9");
    ASSERT_TRUE(id);
    EXPECT_EQ(id->text(), "0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9");
    for (const char* text :
         {"", "0A1B2C3D4E5F60718293A4B5C6D7E8F9", "0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F",
          "0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8FG", "0A1B2C3D-4E5F-6071-82930A4B5C6D7E8F9"}) {
        EXPECT_EQ(UUID::parse(text), std::nullopt) << text;
    }
}

TEST(UUID, IsRandomOfVersionFour) {
    const UUID first = UUID::random();
    EXPECT_NE(first, UUID::random());
    EXPECT_EQ(first.text()[14], '4');
    EXPECT_EQ(UUID::parse(first.text()), first);
}

}  // namespace
}  // namespace vark
