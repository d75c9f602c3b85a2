#include "VarkCore/Foundation/Text.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "VarkCore/Foundation/StableSort.h"

namespace vark {
namespace {

TEST(Text, TellsUTF8FromOtherBytes) {
    for (const char* text :
         {"", "plain text of some length", "\xC3\xA9", "\xF0\x9F\x8E\xAC", "eight by\xC3\xA9"}) {
        EXPECT_TRUE(isUTF8(text)) << text;
        EXPECT_EQ(repairedUTF8(text), text);
    }
    for (const char* text :
         {"\xC3", "a\xFF", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "eight by\xE2\x82"}) {
        EXPECT_FALSE(isUTF8(text));
        EXPECT_TRUE(isUTF8(repairedUTF8(text)));
    }
    EXPECT_EQ(repairedUTF8("a\xFF"
                           "b"),
              "a\xEF\xBF\xBD"
              "b");
}

TEST(Text, LowersLettersOfEveryScript) {
    EXPECT_EQ(lowercased("DCIM_1"), "dcim_1");
    EXPECT_EQ(lowercased("M\xC3\x9CLL"), "m\xC3\xBCll");
}

TEST(Text, SplitsAndKeepsEmptyPieces) {
    using Pieces = std::vector<std::string>;
    EXPECT_EQ(splitKeepingEmpty("/Jobs/2024/", '/'), (Pieces{"", "Jobs", "2024", ""}));
    EXPECT_EQ(splitKeepingEmpty("", '/'), Pieces{""});
    EXPECT_EQ(lastPathComponent("a/b"), "b");
    EXPECT_EQ(lastPathComponent("a/"), "");
    EXPECT_EQ(lastPathComponent("a"), "a");
}

TEST(Text, SplitsPathsAndLeavesEmptyPiecesOut) {
    using Pieces = std::vector<std::string>;
    EXPECT_EQ(pathComponents("/Jobs//2024/"), (Pieces{"Jobs", "2024"}));
    EXPECT_EQ(pathComponents("/"), Pieces{});
}

TEST(Text, TakesBlanksOffTheEnds) {
    struct Case {
        const char* text;
        const char* without;
    };
    for (const Case& each : {Case{" a b\t", "a b"}, Case{"\u3000\u00A0\u00E9 ", "\u00E9"}, Case{"a\n", "a\n"},
                             Case{" \xFF ", "\xFF"}, Case{"  ", ""}, Case{"", ""}}) {
        EXPECT_EQ(withoutBlanksAround(each.text), each.without);
    }
}

TEST(StableSort, LeavesWhatIsEqualInItsOrder) {
    std::vector<std::pair<int, char>> values = {{2, 'a'}, {1, 'b'}, {2, 'c'}, {1, 'd'}, {3, 'e'}};
    stableSort(values, std::greater(), &std::pair<int, char>::first);
    std::string order;
    for (const auto& [key, name] : values)
        order += name;
    EXPECT_EQ(order, "eacbd");
}

TEST(Text, WritesNumbersWithThousandsSeparators) {
    EXPECT_EQ(decimalNumber(0), "0");
    EXPECT_EQ(decimalNumber(1234), "1,234");
    EXPECT_EQ(decimalNumber(-1234567), "-1,234,567");
}

TEST(NaturalOrder, ListsNamesAsAFileBrowserDoes) {
    const std::vector<std::string> expected = {"_z",
                                               "a",
                                               "A",
                                               "a2",
                                               "A2",
                                               "a10",
                                               "a 11/x",
                                               "\xC3\xA9"
                                               "a",
                                               "eb",
                                               "z/a",
                                               "Z/a",
                                               "z1/a",
                                               "z1/b",
                                               "z12"};
    const NaturalOrder order;
    std::vector<std::string> names = expected;
    std::ranges::sort(names);
    std::ranges::sort(names, {}, [&](const std::string& name) { return order.key(name); });
    // A blank is lighter than a digit.
    std::vector<std::string> wanted = expected;
    std::ranges::rotate(wanted.begin() + 3, wanted.begin() + 6, wanted.begin() + 7);
    EXPECT_EQ(names, wanted);
    const std::string longName(5000, 'x');
    EXPECT_LT(order.key(longName), order.key(longName + "a"));
}

TEST(Text, NothingFromOutsideCanSteerATerminal) {
    struct Case {
        std::string_view text;
        const char* shown;
    };
    using namespace std::string_view_literals;
    for (const Case& each : {Case{"Müll 🎬 a\\b"sv, "Müll 🎬 a\\b"}, Case{"a\nb\tc\r"sv, "a\\nb\\tc\\r"},
                             Case{"\x1b[31m\0\x7f\x08"sv, "\\x1b[31m\\x00\\x7f\\x08"},
                             Case{"\xC2\x9b"
                                  "31m"sv,
                                  "\\u009b31m"},
                             Case{"\x9b"
                                  "31m\xFF"sv,
                                  "\\x9b31m\\xff"},
                             Case{"\u202Acod\u202E\u2066\u2069\u200E\u200F\uFEFF"sv,
                                  "\\u202acod\\u202e\\u2066\\u2069\\u200e\\u200f\\ufeff"}}) {
        EXPECT_EQ(escapedForTerminal(each.text), each.shown);
    }
}

}  // namespace
}  // namespace vark
