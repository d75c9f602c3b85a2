#include "VarkCore/Foundation/Text.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace vark {
namespace {

TEST(Text, TellsUTF8FromOtherBytesAndRepairsThem) {
    for (const char* text : {"", "plain", "\xC3\xA9", "\xF0\x9F\x8E\xAC", "eight by\xC3\xA9"})
        EXPECT_EQ(repairedUTF8(text), text);
    for (const char* text : {"\xC3", "a\xFF", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
        EXPECT_FALSE(isUTF8(text));
        EXPECT_TRUE(isUTF8(repairedUTF8(text)));
    }
}

TEST(Text, SplitsPathsAndLeavesEmptyPiecesOut) {
    using Pieces = std::vector<std::string>;
    EXPECT_EQ(pathComponents("/Jobs//2024/"), (Pieces{"Jobs", "2024"}));
    EXPECT_EQ(splitKeepingEmpty("/Jobs/", '/'), (Pieces{"", "Jobs", ""}));
    EXPECT_EQ(lastPathComponent("a/b"), "b");
    EXPECT_EQ(lastPathComponent("a/"), "");
}

TEST(Text, KnowsBlanksAndLettersOfEveryScript) {
    EXPECT_EQ(lowercased("M\xC3\x9CLL_1"), "m\xC3\xBCll_1");
    EXPECT_EQ(withoutBlanksAround(" a b\t"), "a b");
    EXPECT_EQ(withoutBlanksAround("\u3000\u00A0\u00E9 "), "\u00E9");
    EXPECT_EQ(withoutBlanksAround(" \xFF "), "\xFF");
}

TEST(NaturalOrder, ListsNamesAsAFileBrowserDoes) {
    std::vector<std::string> names = {"Z/a", "a10",     "z1/b", "A",  "a 11/x", "A2",   "z12",
                                      "a2",  "\u00E9z", "eb",   "_z", "z/a",    "z1/a", "a"};
    const std::vector<std::string> listed = {"_z", "a",       "A",   "a 11/x", "a2",   "A2",   "a10",
                                             "eb", "\u00E9z", "z/a", "Z/a",    "z1/a", "z1/b", "z12"};
    const NaturalOrder order;
    std::ranges::sort(names, {}, [&](const std::string& name) { return order.key(name); });
    EXPECT_EQ(names, listed);
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
