#include "VarkCore/Foundation/JSON/JSON.h"

#include <gtest/gtest.h>

#include <limits>

namespace vark {
namespace {

template <class T>
std::optional<T> read(std::string_view content) {
    try {
        const boost::json::value value = parseJSON("{\"v\":" + std::string(content) + "}");
        return JSONFields(value).required<T>("v");
    } catch (const DecodingError&) {
        return std::nullopt;
    }
}

TEST(JSON, RefusesBytesThatAreNoJSON) {
    const std::string deep(33, '[');
    const std::string bottom(33, ']');
    for (const std::string& bytes :
         {std::string(), std::string("{} x"), std::string("\"\xFF\""), std::string("[1e999]"), deep + bottom})
        EXPECT_THROW(parseJSON(bytes), DecodingError) << bytes;
    EXPECT_NO_THROW(parseJSON(deep.substr(1) + bottom.substr(1)));
    std::string many = "[0";
    for (int count = 1; count < 1'199'999; ++count)
        many += ",0";
    EXPECT_NO_THROW(parseJSON(many + ']'));
    EXPECT_THROW(parseJSON(many + ",0]"), DecodingError);
}

TEST(JSON, NumbersAreWholeAndInRangeAndTypesAreRight) {
    EXPECT_EQ(read<std::int64_t>("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(read<std::uint64_t>("18446744073709551615"), std::numeric_limits<std::uint64_t>::max());
    for (const char* text : {"5.5", "9223372036854775808", "-1e19", "\"5\"", "true", "null"})
        EXPECT_EQ(read<std::int64_t>(text), std::nullopt) << text;
    EXPECT_EQ(read<std::int32_t>("2147483648.0"), std::nullopt);
    EXPECT_EQ(read<std::uint64_t>("-1"), std::nullopt);
    EXPECT_EQ(read<std::vector<std::string>>("[\"a\",null]"), std::nullopt);
    EXPECT_THROW(JSONFields(parseJSON("[]")), DecodingError);
    const boost::json::value absent = parseJSON("{\"v\":null}");
    EXPECT_EQ(JSONFields(absent).valueOr<std::int64_t>("v", 7), 7);
}

TEST(JSON, DoublesComeBackExactlyAndAreShort) {
    std::uint64_t state = 1;
    for (int round = 0; round < 20000; ++round) {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        const double number = 1.5e9 + static_cast<double>(state >> 24) / 12345.0;
        ASSERT_EQ(read<double>(JSONWriter().value(number).text()), number);
    }
    EXPECT_EQ(JSONWriter().value(1700000000.5).text(), "1700000000.5");
    EXPECT_EQ(JSONWriter().value(std::numeric_limits<double>::infinity()).text(), "0");
}

}  // namespace
}  // namespace vark
