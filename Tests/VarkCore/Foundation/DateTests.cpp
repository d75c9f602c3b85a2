#include "VarkCore/Foundation/Time/Date.h"

#include <gtest/gtest.h>

#include <limits>

#include "VarkCore/Foundation/Time/Calendar.h"

namespace vark {
namespace {

Date at(std::string_view text) {
    return dateFromISO8601(text).value();
}

TEST(Date, IsWrittenInWholeSecondsOfUTC) {
    const std::pair<double, const char*> cases[] = {
        {1740994867.999, "2025-03-03T09:41:07Z"},
        {-0.5, "1969-12-31T23:59:59Z"},
        {1e300, "9999-12-31T23:59:59Z"},
        {std::numeric_limits<double>::quiet_NaN(), "1970-01-01T00:00:00Z"},
    };
    for (const auto& [since1970, text] : cases)
        EXPECT_EQ(iso8601(Date::fromSince1970(since1970)), text);
}

TEST(Date, ReadsEveryTimeZoneDesignatorAndRefusesWhatIsNoDate) {
    for (const char* text : {"2025-03-03T09:41:07Z", "2025-03-03T04:11:07-05:30", "2025-03-03T19:41:07+1000",
                             "2025-03-03T19:41:07+10"})
        EXPECT_EQ(dateFromISO8601(text), Date::fromSince1970(1740994867)) << text;
    for (const char* text : {"", "2025-03-03", "2025-03-03T09:41:07", "2025-03-03T09:41:07.5Z",
                             "2025-02-29T09:41:07Z", "2025-03-03T24:00:00Z", "2025-03-03T09:41:07Zx",
                             "2025-03-03T09:41:07+25:00", "+025-03-03T09:41:07Z"})
        EXPECT_EQ(dateFromISO8601(text), std::nullopt) << text;
}

TEST(Calendar, FindsTheMomentOfTheDayAcrossAChangeOfSummerTime) {
    struct Case {
        const char* zone;
        const char* date;
        int minutes;
        const char* moment;
    };
    // clang-format off
    const Case cases[] = {
        // Summer time ends at three in the morning of 6 April and begins at two on 5 October.
        {"Australia/Melbourne", "2025-04-05T22:00:00Z", 1050, "2025-04-06T07:30:00Z"},
        {"Australia/Melbourne", "2025-10-04T20:00:00Z", 1050, "2025-10-05T06:30:00Z"},
        // There is no midnight on this day: clocks jump from 24:00 to 01:00.
        {"America/Santiago", "2024-09-08T15:00:00Z", 0, "2024-09-08T04:00:00Z"},
    };
    // clang-format on
    for (const Case& each : cases)
        EXPECT_EQ(iso8601(Calendar(each.zone).startOfDay(at(each.date), each.minutes)), each.moment);
}

}  // namespace
}  // namespace vark
