#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <charconv>
#include <concepts>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Foundation/Time/Date.h"
#include "VarkCore/Foundation/UUID.h"

namespace vark {

/// Bytes that are not the JSON that was wanted. `what()` says what is wrong, for a log.
class DecodingError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Parses bytes from outside: UTF-8, at most 32 levels deep, and of no more values than a vark ever sends, so
/// that nonsense does not fill the memory. Fails with `DecodingError`.
boost::json::value parseJSON(std::string_view bytes);

/// Reads the fields of one JSON object with the rules of all our records: null reads as absent, a wrong type
/// is a failure (`DecodingError`), integers must be whole and in the range of their type, and keys that
/// nobody asks for are passed over. Holds a reference: the value that it reads must outlive it.
///
///     JSONFields fields(value);
///     item.id = fields.required<std::int64_t>("id");
///     item.size = fields.valueOr<std::int64_t>("size", 0);
///     item.parent = fields.optional<std::int64_t>("parent");
///
/// `T` is bool, std::int32_t, std::int64_t, std::uint64_t, double, std::string, std::string_view (into the
/// value), std::vector<T>, or a record with `static T fromJSON(const boost::json::value&)`.
class JSONFields {
  public:
    /// Fails if the value is not an object.
    explicit JSONFields(const boost::json::value& value);

    template <class T>
    T required(std::string_view key) const {
        const boost::json::value* value = find(key);
        if (value == nullptr) throw missing(key);
        return read<T>(*value, key);
    }

    template <class T>
    std::optional<T> optional(std::string_view key) const {
        const boost::json::value* value = find(key);
        if (value == nullptr) return std::nullopt;
        return read<T>(*value, key);
    }

    template <class T>
    T valueOr(std::string_view key, T fallback) const {
        const boost::json::value* value = find(key);
        if (value == nullptr) return fallback;
        return read<T>(*value, key);
    }

    /// A date as `iso8601` writes it, and an identifier as `UUID::text` does. Fail like `required`.
    Date iso8601(std::string_view key) const;
    std::optional<Date> optionalISO8601(std::string_view key) const;
    UUID identifier(std::string_view key) const;
    /// The place of a text among those that it may be. Fails like `required`.
    std::size_t choice(std::string_view key, std::span<const std::string_view> texts) const;

    /// The value as it stands, or null when it is absent or JSON's null.
    const boost::json::value* find(std::string_view key) const;

  private:
    template <class T>
    struct IsVector : std::false_type {};
    template <class T>
    struct IsVector<std::vector<T>> : std::true_type {};

    template <class T>
    static T read(const boost::json::value& value, std::string_view key) {
        if constexpr (IsVector<T>::value) {
            const boost::json::array& array = arrayOf(value, key);
            T result;
            result.reserve(array.size());
            for (const boost::json::value& element : array) {
                result.push_back(read<typename T::value_type>(element, key));
            }
            return result;
        } else if constexpr (requires {
                                 { T::fromJSON(value) } -> std::same_as<T>;
                             }) {
            return T::fromJSON(value);
        } else {
            T result{};
            readInto(value, key, result);
            return result;
        }
    }

    static DecodingError missing(std::string_view key);
    static const boost::json::array& arrayOf(const boost::json::value& value, std::string_view key);
    static void readInto(const boost::json::value& value, std::string_view key, bool& result);
    static void readInto(const boost::json::value& value, std::string_view key, std::int32_t& result);
    static void readInto(const boost::json::value& value, std::string_view key, std::int64_t& result);
    static void readInto(const boost::json::value& value, std::string_view key, std::uint64_t& result);
    static void readInto(const boost::json::value& value, std::string_view key, double& result);
    static void readInto(const boost::json::value& value, std::string_view key, std::string& result);
    static void readInto(const boost::json::value& value, std::string_view key, std::string_view& result);

    const boost::json::object& object_;
};

/// Writes JSON straight into one growing buffer: no document in between, keys in the order of the calls. The
/// caller keeps the nesting right; commas come by themselves. Doubles are written as the shortest text that
/// reads back as the same number; one that is not finite is written as 0, since JSON has no word for it.
///
///     JSONWriter json;
///     json.beginObject().field("path", path).field("size", size);
///     json.key("tags").beginArray().value("a").endArray().endObject();
///     send(json.take());
class JSONWriter {
  public:
    JSONWriter() = default;
    explicit JSONWriter(std::size_t reservedBytes) { text_.reserve(reservedBytes); }

    JSONWriter& beginObject() { return open('{'); }
    JSONWriter& endObject() { return close('}'); }
    JSONWriter& beginArray() { return open('['); }
    JSONWriter& endArray() { return close(']'); }
    JSONWriter& key(std::string_view name);

    JSONWriter& value(std::string_view text);
    JSONWriter& value(const char* text) { return value(std::string_view(text)); }
    JSONWriter& value(bool flag);
    JSONWriter& value(double number);
    template <std::integral T>
        requires(!std::same_as<T, bool>)
    JSONWriter& value(T number) {
        separate();
        char digits[24];
        text_.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
        return *this;
    }

    template <class T>
    JSONWriter& field(std::string_view name, const T& content) {
        key(name);
        return value(content);
    }
    /// Leaves the key out without a value; null is never written.
    template <class T>
    JSONWriter& field(std::string_view name, const std::optional<T>& content) {
        return content ? field(name, *content) : *this;
    }
    JSONWriter& field(std::string_view name, const std::vector<std::string>& texts);

    /// Ends one document of several that stand in a line each.
    JSONWriter& endLine() {
        text_ += '\n';
        return *this;
    }

    std::string take() { return std::move(text_); }
    const std::string& text() const { return text_; }

  private:
    JSONWriter& open(char bracket);
    JSONWriter& close(char bracket);
    void separate();

    std::string text_;
};

/// The text as a JSON string, with its quotes. Bytes that are no UTF-8 become U+FFFD, so that what was
/// written can always be read again.
void appendJSONString(std::string& to, std::string_view text);
/// The number as `JSONWriter` writes it.
void appendJSONNumber(std::string& to, double number);

/// The shortest decimal text that reads back as the same double, with at least one digit behind the point and
/// no exponent in the range of file times: "0.0", "1700000000.5".
std::string shortestDecimal(double number);

}  // namespace vark
