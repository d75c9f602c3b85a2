#include "Hosts/CLI/Moments.h"

#include <gtest/gtest.h>

#include "Hosts/CLI/PathOptions.h"

namespace vark::cli {
namespace {

TEST(Moments, AreReadInTheCalendarsZone) {
    const Calendar melbourne("Australia/Melbourne");
    // 20 November, 14:00 there, eleven hours ahead.
    const Date now = *dateFromISO8601("2026-11-20T03:00:00Z");
    const std::pair<const char*, const char*> good[] = {
        {"90s", "2026-11-20T02:58:30Z"},
        {"2h", "2026-11-20T01:00:00Z"},
        {"1.5d", "2026-11-18T15:00:00Z"},
        {"1w", "2026-11-13T03:00:00Z"},
        {"09:00", "2026-11-19T22:00:00Z"},
        {"today", "2026-11-19T13:00:00Z"},
        {"yesterday", "2026-11-18T13:00:00Z"},
        {"2026-11-18", "2026-11-17T13:00:00Z"},
        {" 2026-11-18 09:30 ", "2026-11-17T22:30:00Z"},
        // In winter ten hours ahead.
        {"2026-07-01T00:00", "2026-06-30T14:00:00Z"},
    };
    for (const auto& [text, moment] : good) {
        const Parsed<Date> since = parseSince(text, now, melbourne);
        ASSERT_TRUE(since) << since.error();
        EXPECT_EQ(iso8601(*since), moment) << text;
    }
    for (const char* bad : {"", "2", "h", "-2h", "2x", "2hh", "24:00", "9:60", "2026-02-30", "2026-13-01",
                            "2026-11-18x", "2026-11-18 9", "tomorrow", "1e3d"})
        EXPECT_FALSE(parseSince(bad, now, melbourne)) << bad;
}

TEST(PathOptions, AListHasAPathInEachPiece) {
    using Paths = std::vector<std::string>;
    EXPECT_EQ(pathsIn("a\n\nb c\n", false), (Paths{"a", "b c"}));
    EXPECT_EQ(pathsIn(std::string_view("a\nb\0c\0", 6), true), (Paths{"a\nb", "c"}));
    EXPECT_EQ(pathsIn("", false), Paths());
}

}  // namespace
}  // namespace vark::cli
