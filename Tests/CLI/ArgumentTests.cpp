#include <gtest/gtest.h>

#include "Hosts/CLI/Arguments.h"

namespace vark::cli {
namespace {

TEST(Arguments, ARateIsANumberOfBytes) {
    const std::pair<const char*, std::int64_t> good[] = {
        {"500k", 500'000}, {"1.5 MB/s", 1'500'000}, {"10", 10}, {"3MiB", 3 * 1024 * 1024}};
    for (const auto& [text, bytes] : good)
        EXPECT_EQ(parseRate(text), bytes) << text;
    for (const char* bad : {"0MB", "-1MB", "0.9B", "nanMB", "9999999GB", "10MB/h", "MB", "", "10X"}) {
        ASSERT_FALSE(parseRate(bad)) << bad;
        EXPECT_TRUE(parseRate(bad).error().contains("is no rate")) << bad;
    }
    for (const char* bits : {"10Mb", "1Gib", "500Kbit/s", "10mbps"})
        EXPECT_TRUE(parseRate(bits).error().contains("would be bits")) << bits;
}

TEST(Arguments, WorkingHoursMayGoPastMidnight) {
    const std::pair<const char*, WorkingHours> good[] = {
        {"09:00-17:30", {540, 1050}}, {"9:05-10:00", {545, 600}}, {"00:00-24:00", {0, 1440}},
        {"22:00-06:00", {1320, 360}}, {"22:00-00:00", {1320, 0}},
    };
    for (const auto& [text, hours] : good)
        EXPECT_EQ(parseWorkingHours(text), hours) << text;
    for (const char* bad : {"", "09:00", "09:00-09:00", "24:00-06:00", "09:60-17:00", "09:00-24:01", "9-17",
                            "09:0-17:00", "09:00 - 17:30", "09:00-17:30x", "-1:00-17:00", "009:00-17:00"})
        EXPECT_FALSE(parseWorkingHours(bad)) << bad;
}

TEST(WorkingHours, PastMidnightTheyEndOnTheNextMorningUnlessThatIsASaturday) {
    const Calendar melbourne("Australia/Melbourne");
    const WorkingHours night{1320, 360};
    // 27 November 2026 is a Friday; the zone is eleven hours ahead.
    const std::pair<const char*, const char*> cases[] = {
        {"2026-11-26T10:59:59Z", ""}, {"2026-11-26T11:00:00Z", "2026-11-26T19:00:00Z"},
        {"2026-11-26T19:00:00Z", ""}, {"2026-11-27T12:00:00Z", "2026-11-27T13:00:00Z"},
        {"2026-11-29T12:59:59Z", ""}, {"2026-11-29T13:00:00Z", "2026-11-29T19:00:00Z"},
    };
    for (const auto& [moment, allowed] : cases) {
        const Date now = *dateFromISO8601(moment);
        const std::optional<Date> next = night.at(now, melbourne).nextAllowed(now, melbourne);
        EXPECT_EQ(next ? iso8601(*next) : "", allowed) << moment;
    }
    // Whoever has asked before midnight is not let out by it.
    const Date before = *dateFromISO8601("2026-11-26T12:59:59Z");
    EXPECT_FALSE(night.at(before, melbourne).allows(before + 2, melbourne));
}

}  // namespace
}  // namespace vark::cli
