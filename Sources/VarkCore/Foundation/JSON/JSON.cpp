#include "VarkCore/Foundation/JSON/JSON.h"

#include <algorithm>
#include <boost/json/monotonic_resource.hpp>
#include <charconv>
#include <cmath>
#include <concepts>
#include <limits>

#include "VarkCore/Foundation/JSON/JSONBuilder.h"
#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

namespace json = boost::json;

DecodingError wrongType(std::string_view key, std::string_view wanted) {
    return DecodingError(std::string(key) + " is not " + std::string(wanted));
}

template <std::integral Integer>
Integer wholeNumber(const json::value& value, std::string_view key) {
    if (const std::int64_t* number = value.if_int64()) {
        if (std::in_range<Integer>(*number)) return static_cast<Integer>(*number);
        throw wrongType(key, "in the range of its type");
    }
    if (const std::uint64_t* number = value.if_uint64()) {
        if (std::in_range<Integer>(*number)) return static_cast<Integer>(*number);
        throw wrongType(key, "in the range of its type");
    }
    const double* number = value.if_double();
    if (number == nullptr || std::trunc(*number) != *number) throw wrongType(key, "a whole number");
    // Both bounds are powers of two (or zero), which a double holds exactly.
    const double lowest = static_cast<double>(std::numeric_limits<Integer>::min());
    const double above = std::ldexp(1.0, std::numeric_limits<Integer>::digits);
    if (*number < lowest || *number >= above) throw wrongType(key, "in the range of its type");
    return static_cast<Integer>(*number);
}

void appendNumber(std::string& to, double number, std::chars_format format) {
    char digits[64];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, number, format);
    to.append(digits, end.ptr);
}

/// Below 2^53 every whole double can be written out in at most 16 digits.
bool isPlainlyWritten(double number) {
    const double size = std::abs(number);
    return size == 0 || (size >= 1e-5 && size < 9007199254740992.0);
}

}  // namespace

json::value parseJSON(std::string_view bytes) {
    json::basic_parser<JSONBuilder> parser(jsonParseOptions());
    parser.handler().begin(json::make_shared_resource<json::monotonic_resource>());
    runJSONParser(parser, bytes);
    return parser.handler().take();
}

JSONFields::JSONFields(const json::value& value)
    : object_(value.is_object() ? value.get_object() : throw DecodingError("not an object")) {}

const json::value* JSONFields::find(std::string_view key) const {
    const json::value* value = object_.if_contains(key);
    return value == nullptr || value->is_null() ? nullptr : value;
}

Date JSONFields::iso8601(std::string_view key) const {
    const std::optional<Date> date = optionalISO8601(key);
    if (!date) throw missing(key);
    return *date;
}

std::optional<Date> JSONFields::optionalISO8601(std::string_view key) const {
    const auto text = optional<std::string_view>(key);
    if (!text) return std::nullopt;
    const std::optional<Date> date = dateFromISO8601(*text);
    if (!date) throw wrongType(key, "a date");
    return date;
}

UUID JSONFields::identifier(std::string_view key) const {
    const std::optional<UUID> id = UUID::parse(required<std::string_view>(key));
    if (!id) throw wrongType(key, "an identifier");
    return *id;
}

std::size_t JSONFields::choice(std::string_view key, std::span<const std::string_view> texts) const {
    const auto found = std::ranges::find(texts, required<std::string_view>(key));
    if (found == texts.end()) throw wrongType(key, "a word that is known");
    return static_cast<std::size_t>(found - texts.begin());
}

DecodingError JSONFields::missing(std::string_view key) {
    return DecodingError(std::string(key) + " is missing");
}

const json::array& JSONFields::arrayOf(const json::value& value, std::string_view key) {
    if (!value.is_array()) throw wrongType(key, "an array");
    return value.get_array();
}

void JSONFields::readInto(const json::value& value, std::string_view key, bool& result) {
    if (!value.is_bool()) throw wrongType(key, "true or false");
    result = value.get_bool();
}

void JSONFields::readInto(const json::value& value, std::string_view key, std::int32_t& result) {
    result = wholeNumber<std::int32_t>(value, key);
}

void JSONFields::readInto(const json::value& value, std::string_view key, std::int64_t& result) {
    result = wholeNumber<std::int64_t>(value, key);
}

void JSONFields::readInto(const json::value& value, std::string_view key, std::uint64_t& result) {
    result = wholeNumber<std::uint64_t>(value, key);
}

void JSONFields::readInto(const json::value& value, std::string_view key, double& result) {
    if (!value.is_number()) throw wrongType(key, "a number");
    result = value.to_number<double>();
}

void JSONFields::readInto(const json::value& value, std::string_view key, std::string& result) {
    std::string_view text;
    readInto(value, key, text);
    result = text;
}

void JSONFields::readInto(const json::value& value, std::string_view key, std::string_view& result) {
    if (!value.is_string()) throw wrongType(key, "a text");
    const json::string& text = value.get_string();
    result = {text.data(), text.size()};
}

JSONWriter& JSONWriter::open(char bracket) {
    separate();
    text_ += bracket;
    return *this;
}

JSONWriter& JSONWriter::close(char bracket) {
    text_ += bracket;
    return *this;
}

void JSONWriter::separate() {
    if (text_.empty()) return;
    const char last = text_.back();
    if (last != '{' && last != '[' && last != ':' && last != '\n') text_ += ',';
}

JSONWriter& JSONWriter::key(std::string_view name) {
    separate();
    appendJSONString(text_, name);
    text_ += ':';
    return *this;
}

JSONWriter& JSONWriter::value(std::string_view text) {
    separate();
    appendJSONString(text_, text);
    return *this;
}

JSONWriter& JSONWriter::value(bool flag) {
    separate();
    text_ += flag ? "true" : "false";
    return *this;
}

JSONWriter& JSONWriter::value(double number) {
    separate();
    appendJSONNumber(text_, number);
    return *this;
}

JSONWriter& JSONWriter::field(std::string_view name, const std::vector<std::string>& texts) {
    key(name).beginArray();
    for (const std::string& text : texts)
        value(text);
    return endArray();
}

void appendJSONString(std::string& to, std::string_view text) {
    constexpr const char* digits = "0123456789abcdef";
    if (!isUTF8(text)) {
        appendJSONString(to, repairedUTF8(text));
        return;
    }
    to += '"';
    std::size_t plain = 0;
    for (std::size_t place = 0; place < text.size(); ++place) {
        const auto byte = static_cast<unsigned char>(text[place]);
        if (byte >= 0x20 && byte != '"' && byte != '\\') continue;
        to.append(text, plain, place - plain);
        plain = place + 1;
        to += '\\';
        switch (byte) {
            case '"':
            case '\\':
                to += text[place];
                break;
            case '\n':
                to += 'n';
                break;
            case '\r':
                to += 'r';
                break;
            case '\t':
                to += 't';
                break;
            default:
                to += "u00";
                to += digits[byte >> 4];
                to += digits[byte & 15];
        }
    }
    to.append(text, plain);
    to += '"';
}

void appendJSONNumber(std::string& to, double number) {
    if (!std::isfinite(number)) {
        to += '0';
        return;
    }
    appendNumber(to, number,
                 isPlainlyWritten(number) ? std::chars_format::fixed : std::chars_format::scientific);
}

std::string shortestDecimal(double number) {
    std::string text;
    if (!isPlainlyWritten(number)) {
        appendNumber(text, number, std::chars_format::scientific);
        return text;
    }
    appendNumber(text, number, std::chars_format::fixed);
    if (text.find('.') == std::string::npos) text += ".0";
    return text;
}

}  // namespace vark
