#include "VarkCore/Foundation/Text.h"

#include <gtest/gtest.h>

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

TEST(NaturalOrder, TellsLongNamesApart) {
    const NaturalOrder order;
    const std::string longName(5000, 'x');
    EXPECT_LT(order.key(longName + "2"), order.key(longName + "10"));
}

TEST(Text, NothingFromOutsideCanSteerATerminal) {
    using namespace std::string_view_literals;
    // clang-format off
    const std::pair<std::string_view, const char*> cases[] = {
        {"M\u00FCll a\\b"sv, "M\u00FCll a\\b"},
        {"a\nb\tc\r"sv, "a\\nb\\tc\\r"},
        {"\x1b[31m\0\x7f\x08"sv, "\\x1b[31m\\x00\\x7f\\x08"},
        {"\u009b[31m"sv, "\\u009b[31m"},
        {"\x9b[31m\xFF"sv, "\\x9b[31m\\xff"},
        {"\u202Acod\u202E\u2066\u2069\u200E\u200F\uFEFF"sv, "\\u202acod\\u202e\\u2066\\u2069\\u200e\\u200f\\ufeff"},
    };
    // clang-format on
    for (const auto& [text, shown] : cases)
        EXPECT_EQ(escapedForTerminal(text), shown);
}

}  // namespace
}  // namespace vark
