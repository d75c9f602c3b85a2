#include "VarkCore/Transfer/Format.h"

#include <gtest/gtest.h>

#include <limits>

#include "VarkCore/Foundation/JSON.h"
#include "VarkCore/Transfer/OfficeHours.h"

namespace vark {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

template <class Value>
struct Worded {
    Value value;
    const char* words;
};

TEST(Format, WordsRates) {
    for (const Worded<double>& each : {Worded<double>{0, ""},
                                       {-1, ""},
                                       {notANumber, ""},
                                       {999, "999 B/s"},
                                       {1000, "1 KB/s"},
                                       {999'400, "999 KB/s"},
                                       {1e6, "1.0 MB/s"},
                                       {12'540'000, "12.5 MB/s"},
                                       {1e9, "1.0 GB/s"}}) {
        EXPECT_EQ(Format::rate(each.value), each.words) << each.value;
    }
}

TEST(Format, WordsTimeLeft) {
    for (const Worded<double>& each : {Worded<double>{-1, ""},
                                       {notANumber, ""},
                                       {infinity, ""},
                                       {0, "a moment"},
                                       {4.9, "a moment"},
                                       {5, "5 s"},
                                       {42.4, "42 s"},
                                       {59.6, "60 s"},
                                       {60, "1 min"},
                                       {89, "1 min"},
                                       {90, "2 min"},
                                       {3599, "1 h"},
                                       {5400, "1 h 30 min"},
                                       {86369, "23 h 59 min"},
                                       {86370, "1 d"},
                                       {90000, "1 d 1 h"},
                                       {172'800, "2 d"},
                                       {172'800 + 1800, "2 d"}}) {
        EXPECT_EQ(Format::timeLeft(each.value), each.words) << each.value;
    }
    EXPECT_FALSE(Format::timeLeft(1e300).empty());
}

TEST(Format, WordsPercentWithoutPromisingTooMuch) {
    for (const Worded<double>& each : {Worded<double>{0.999, "99%"},
                                       {1.2, "100%"},
                                       {-0.5, "0%"},
                                       {0.5, "50%"},
                                       {notANumber, "0%"},
                                       {infinity, "100%"}}) {
        EXPECT_EQ(Format::percent(each.value), each.words) << each.value;
    }
}

TEST(Format, WordsBytes) {
    for (const Worded<std::int64_t>& each : {Worded<std::int64_t>{0, "0 bytes"},
                                             {1, "1 byte"},
                                             {999, "999 bytes"},
                                             {1000, "1 KB"},
                                             {999'500, "1000 KB"},
                                             {1'000'000, "1 MB"},
                                             {1'500'000'000, "1.5 GB"},
                                             {2'000'000'000'000, "2.0 TB"}}) {
        EXPECT_EQ(Format::bytes(each.value), each.words) << each.value;
    }
}

TEST(Format, WordsCountsTimesAndDates) {
    EXPECT_EQ(Format::count(1234, "file"), "1,234 files");
    EXPECT_EQ(Format::count(1, "file"), "1 file");
    EXPECT_EQ(Format::count(0, "entry", "entries"), "0 entries");
    EXPECT_EQ(Format::clock(1050), "17:30");
    EXPECT_EQ(Format::clock(5), "00:05");
    const Date date = dateFromISO8601("2025-03-02T22:41:07Z").value();
    EXPECT_EQ(Format::date(date, Calendar("Australia/Melbourne")), "3 Mar 2025, 09:41");
    EXPECT_EQ(Format::time(date, Calendar("UTC")), "22:41");
}

TEST(OfficeHours, KeepOutOfTheWorkingDay) {
    const Calendar melbourne("Australia/Melbourne");
    struct Case {
        const char* date;
        bool allowed;
    };
    const OfficeHours hours{.onlyOutside = true};
    const OfficeHours off{.onlyOutside = false};
    for (const Case& each :
         {Case{"2025-03-05T08:59:59+11:00", true}, Case{"2025-03-05T09:00:00+11:00", false},
          Case{"2025-03-05T17:29:59+11:00", false}, Case{"2025-03-05T17:30:00+11:00", true},
          Case{"2025-03-08T12:00:00+11:00", true}, Case{"2025-03-09T12:00:00+11:00", true},
          Case{"2025-03-07T12:00:00+11:00", false}, Case{"2025-03-10T12:00:00+11:00", false}}) {
        const Date date = dateFromISO8601(each.date).value();
        EXPECT_EQ(hours.allows(date, melbourne), each.allowed) << each.date;
        EXPECT_TRUE(off.allows(date, melbourne));
        EXPECT_EQ(hours.nextAllowed(date, melbourne).has_value(), !each.allowed);
    }
    EXPECT_EQ(
        iso8601(hours.nextAllowed(dateFromISO8601("2025-03-05T12:00:00+11:00").value(), melbourne).value()),
        "2025-03-05T06:30:00Z");
}

TEST(OfficeHours, AWindowThatDoesNotBeginBeforeItEndsAllowsEverything) {
    const Date wednesday = dateFromISO8601("2025-03-05T23:00:00Z").value();
    for (const auto& [start, end] : {std::pair(1320, 360), std::pair(600, 600)}) {
        const OfficeHours hours{.onlyOutside = true, .startMinute = start, .endMinute = end};
        for (int minute = 0; minute < 1440; ++minute)
            ASSERT_TRUE(hours.allows(wednesday + minute * 60, Calendar("UTC")));
        EXPECT_EQ(hours.nextAllowed(wednesday, Calendar("UTC")), std::nullopt);
    }
    const OfficeHours hours{.onlyOutside = true, .startMinute = 1, .endMinute = 2};
    EXPECT_EQ(OfficeHours::fromJSON(parseJSON(hours.toJSON())), hours);
}

}  // namespace
}  // namespace vark
