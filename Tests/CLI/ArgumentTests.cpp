#include <gtest/gtest.h>

#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/Display/DiaryLines.h"
#include "Hosts/CLI/Display/TextWidth.h"

namespace vark::cli {
namespace {

TEST(Arguments, ARateIsANumberOfBytes) {
    const std::pair<const char*, std::int64_t> good[] = {
        {"10MB", 10'000'000}, {"500k", 500'000},         {"1.5 MB/s", 1'500'000},
        {"10", 10},           {"3MiB", 3 * 1024 * 1024}, {" 2 gb/S ", 2'000'000'000},
    };
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
    struct Case {
        const char* now;
        const char* next;
    };
    // 27 November 2026 is a Friday; the zone is eleven hours ahead.
    const Case cases[] = {
        {"2026-11-26T10:59:59Z", ""},
        {"2026-11-26T11:00:00Z", "2026-11-26T19:00:00Z"},
        {"2026-11-26T13:30:00Z", "2026-11-26T19:00:00Z"},
        {"2026-11-26T19:00:00Z", ""},
        {"2026-11-27T12:00:00Z", "2026-11-27T13:00:00Z"},
        {"2026-11-27T14:00:00Z", ""},
        {"2026-11-29T12:59:59Z", ""},
        {"2026-11-29T13:00:00Z", "2026-11-29T19:00:00Z"},
    };
    for (const Case& one : cases) {
        const Date now = *dateFromISO8601(one.now);
        const std::optional<Date> next = night.at(now, melbourne).nextAllowed(now, melbourne);
        EXPECT_EQ(next ? iso8601(*next) : "", one.next) << one.now;
    }
    // Whoever has asked before midnight is not let out by it.
    const Date before = *dateFromISO8601("2026-11-26T12:59:59Z");
    EXPECT_FALSE(night.at(before, melbourne).allows(before + 2, melbourne));
}

TEST(TextWidth, CountsColumnsAndClipsBetweenCharacters) {
    struct Case {
        std::string text;
        int width;
        std::string inSix;
        std::string aroundTheMiddle;
    };
    const Case cases[] = {
        {"", 0, "", ""},
        {"abcdef", 6, "abcdef", "abcdef"},
        {"abcdefg", 7, "abcde…", "ab…efg"},
        {"日本語字", 8, "日本…", "日…字"},
        {"e\u0301tudes.", 7, "e\u0301tude…", "e\u0301t…es."},
        {"abcde\u0301\u0301xyz", 8, "abcde\u0301\u0301…", "ab…xyz"},
        {"📷📷📷📷", 8, "📷📷…", "📷…📷"},
    };
    for (const Case& one : cases) {
        EXPECT_EQ(displayWidth(one.text), one.width) << one.text;
        EXPECT_EQ(clippedToWidth(one.text, 6), one.inSix) << one.text;
        EXPECT_EQ(clippedInTheMiddle(one.text, 6), one.aroundTheMiddle) << one.text;
    }
    EXPECT_EQ(clippedToWidth("abc", 0) + clippedInTheMiddle("abc", 0), "");
    EXPECT_EQ(paddedToWidth("日本", 6), "日本  ");
}

TEST(DiaryLines, TheTimeInFrontIsTakenApartInTheCalendarsZone) {
    const Calendar melbourne("Australia/Melbourne");
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"3 Mar 2025, 09:41:07  Paused", "2025-03-02T22:41:07Z", "Paused"},
        {"1 Jan 2026, 00:00:00  Two  blanks", "2025-12-31T13:00:00Z", "Two  blanks"},
        {"and the rest of a name", "", "and the rest of a name"},
        {"x  3 Mar 2025, 09:41:07", "", "x  3 Mar 2025, 09:41:07"},
        {"", "", ""},
    };
    for (const auto& [line, at, message] : cases) {
        DiaryLine read = joinedDiaryLines({line}, melbourne).at(0);
        EXPECT_EQ(read.at ? iso8601(*read.at) : "", at) << line;
        EXPECT_EQ(read.message, message) << line;
    }
    // A message that was spread over lines is one sentence again.
    const std::vector<DiaryLine> sentences = joinedDiaryLines(
        {"the end of one", "3 Mar 2025, 09:41:07  Sending line", "break", "3 Mar 2025, 09:41:08  Paused"},
        melbourne);
    ASSERT_EQ(sentences.size(), 3U);
    EXPECT_EQ(sentences[1].message, "Sending line\nbreak");
}

}  // namespace
}  // namespace vark::cli
