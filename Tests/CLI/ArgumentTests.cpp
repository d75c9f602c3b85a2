#include <gtest/gtest.h>

#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/DiaryLines.h"
#include "Hosts/CLI/TextWidth.h"

namespace vark::cli {
namespace {

TEST(Arguments, ARateIsANumberOfBytesWithADecimalUnit) {
    const std::pair<const char*, std::optional<std::int64_t>> cases[] = {
        {"10MB", 10'000'000},
        {"500KB/s", 500'000},
        {"1.5 MB/s", 1'500'000},
        {" 2 gb/S ", 2'000'000'000},
        {"800B", 800},
        {"0.001KB", 1},
        {"10", std::nullopt},
        {"0MB", std::nullopt},
        {"-1MB", std::nullopt},
        {"0.9B", std::nullopt},
        {"nanMB", std::nullopt},
        {"infMB", std::nullopt},
        {"1e9B", std::nullopt},
        {"9999999GB", std::nullopt},
        {"10MB/h", std::nullopt},
        {"10 M B", std::nullopt},
        {"MB", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [text, bytes] : cases)
        EXPECT_EQ(parseRate(text), bytes) << text;
}

TEST(Arguments, OfficeHoursBeginBeforeTheyEnd) {
    struct Case {
        const char* text;
        int start;
        int end;
    };
    for (const Case& good :
         {Case{"09:00-17:30", 540, 1050}, Case{"9:05-10:00", 545, 600}, Case{"00:00-24:00", 0, 1440}}) {
        std::optional<OfficeHours> hours = parseOfficeHours(good.text);
        ASSERT_TRUE(hours) << good.text;
        EXPECT_EQ(*hours, (OfficeHours{true, good.start, good.end})) << good.text;
    }
    for (const char* bad : {"", "09:00", "17:30-09:00", "09:00-09:00", "09:60-17:00", "09:00-24:01", "9-17",
                            "09:0-17:00", "09:00 - 17:30", "09:00-17:30x", "-1:00-17:00", "009:00-17:00"})
        EXPECT_FALSE(parseOfficeHours(bad)) << bad;
}

TEST(Arguments, PathsInTheVarkAreJoinedWithSingleSlashes) {
    EXPECT_EQ(joinedVarkPath("", ""), "");
    EXPECT_EQ(joinedVarkPath("", "/Jobs//2026/"), "Jobs/2026");
    EXPECT_EQ(joinedVarkPath("Acme/", "Jobs"), "Acme/Jobs");
}

TEST(TextWidth, CountsColumnsAndClipsBetweenCharacters) {
    struct Case {
        std::string text;
        int width;
        std::string inSix;
    };
    const Case cases[] = {
        {"", 0, "      "},
        {"abc", 3, "abc   "},
        {"abcdefg", 7, "abcde…"},
        {"日本語字", 8, "日本… "},
        {"e\u0301tude", 5, "e\u0301tude "},
        {"📷📷📷📷", 8, "📷📷… "},
    };
    for (const Case& one : cases) {
        EXPECT_EQ(displayWidth(one.text), one.width) << one.text;
        EXPECT_EQ(paddedToWidth(one.text, 6), one.inSix) << one.text;
    }
    EXPECT_EQ(clippedToWidth("abc", 0), "");
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
    // Every month as the diary itself writes it.
    for (int month = 0; month < 12; ++month) {
        Date moment = *dateFromISO8601("2025-01-15T03:04:05Z") + month * 30.4 * 86'400;
        std::string line = melbourne.format(moment, "d MMM yyyy, HH:mm:ss") + "  x";
        DiaryLine read = joinedDiaryLines({line}, melbourne).at(0);
        ASSERT_TRUE(read.at) << line;
        EXPECT_NEAR(*read.at - moment, 0, 1) << line;
    }
}

TEST(DiaryLines, AMessageThatWasSpreadOverLinesIsOneSentenceAgain) {
    const std::vector<DiaryLine> sentences = joinedDiaryLines(
        {"the end of one", "3 Mar 2025, 09:41:07  Sending line", "break", "3 Mar 2025, 09:41:08  Paused"},
        Calendar("UTC"));
    ASSERT_EQ(sentences.size(), 3U);
    EXPECT_EQ(sentences[1].text, "3 Mar 2025, 09:41:07  Sending line\nbreak");
    EXPECT_EQ(sentences[1].message, "Sending line\nbreak");
    EXPECT_EQ(sentences[2].message, "Paused");
}

}  // namespace
}  // namespace vark::cli
