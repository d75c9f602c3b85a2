#include "VarkCore/Transfer/Format.h"

#include <gtest/gtest.h>

#include <limits>

#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Transfer/OfficeHours.h"

namespace vark {
namespace {

TEST(Format, WordsWhatAPersonReads) {
    const double nonsense = std::numeric_limits<double>::quiet_NaN();
    const Date date = dateFromISO8601("2025-03-02T22:41:07Z").value();
    const std::pair<std::string, const char*> cases[] = {
        {Format::rate(nonsense), ""},
        {Format::rate(12'540'000), "12.5 MB/s"},
        {Format::timeLeft(nonsense), ""},
        {Format::timeLeft(59.6), "60 s"},
        {Format::timeLeft(5400), "1 h 30 min"},
        {Format::percent(0.999), "99%"},
        {Format::bytes(999'500), "1000 KB"},
        {Format::count(1234, "file"), "1,234 files"},
        {Format::count(0, "entry", "entries"), "0 entries"},
        {Format::date(date, Calendar("Australia/Melbourne")), "3 Mar 2025, 09:41"},
    };
    for (const auto& [words, expected] : cases)
        EXPECT_EQ(words, expected);
}

TEST(OfficeHours, KeepOutOfTheWorkingDay) {
    const Calendar melbourne("Australia/Melbourne");
    struct Case {
        const char* date;
        bool allowed;
    };
    // clang-format off
    const Case cases[] = {
        {"2025-03-05T08:59:59+11:00", true},
        {"2025-03-05T09:00:00+11:00", false},
        {"2025-03-05T17:29:59+11:00", false},
        {"2025-03-05T17:30:00+11:00", true},
        {"2025-03-07T12:00:00+11:00", false},  // Friday.
        {"2025-03-09T12:00:00+11:00", true},
    };
    // clang-format on
    for (const Case& each : cases) {
        const Date date = dateFromISO8601(each.date).value();
        const OfficeHours hours{.onlyOutside = true};
        EXPECT_EQ(hours.allows(date, melbourne), each.allowed) << each.date;
        EXPECT_EQ(hours.nextAllowed(date, melbourne).has_value(), !each.allowed);
        // Nor does a window that does not begin before it ends keep anything out.
        for (const OfficeHours& off : {OfficeHours{.onlyOutside = false}, OfficeHours{true, 1320, 360}})
            EXPECT_TRUE(off.allows(date, melbourne));
    }
    const OfficeHours hours{.onlyOutside = true, .startMinute = 1, .endMinute = 2};
    EXPECT_EQ(OfficeHours::fromJSON(parseJSON(hours.toJSON())), hours);
}

}  // namespace
}  // namespace vark
