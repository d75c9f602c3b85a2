#pragma once

#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/value.hpp>
#include <boost/json/value_stack.hpp>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>

#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {

/// Builds a JSON value from the events of Boost's parser; for the two .cpp files that run one, since it is
/// dear to compile. The library's own handler rounds one double in sixteen to a neighbour; a time that is
/// compared as text must come back exactly, so doubles are read from their digits here.
class JSONBuilder {
  public:
    static constexpr std::size_t max_object_size = boost::json::object::max_size();
    static constexpr std::size_t max_array_size = boost::json::array::max_size();
    /// Thirty megabytes of the smallest values would take up a gigabyte. An honest document has fewer, or is
    /// read in pieces.
    static constexpr std::size_t mostValues = 1'200'000;
    static constexpr std::size_t max_key_size = boost::json::string::max_size();
    static constexpr std::size_t max_string_size = boost::json::string::max_size();

    using Error = boost::json::error_code;
    using Text = boost::json::string_view;

    /// Begins a value in this storage; what was built so far and not taken is gone.
    void begin(boost::json::storage_ptr storage) {
        stack_.reset(std::move(storage));
        values_ = 0;
    }
    boost::json::value take() { return stack_.release(); }

    bool on_document_begin(Error&) { return true; }
    bool on_document_end(Error&) { return true; }
    bool on_object_begin(Error&) { return true; }
    bool on_object_end(std::size_t count, Error& error) {
        stack_.push_object(count);
        return hasRoom(error);
    }
    bool on_array_begin(Error&) { return true; }
    bool on_array_end(std::size_t count, Error& error) {
        stack_.push_array(count);
        return hasRoom(error);
    }
    bool on_key_part(Text text, std::size_t, Error&) {
        stack_.push_chars(text);
        return true;
    }
    bool on_key(Text text, std::size_t, Error&) {
        stack_.push_key(text);
        return true;
    }
    bool on_string_part(Text text, std::size_t, Error&) {
        stack_.push_chars(text);
        return true;
    }
    bool on_string(Text text, std::size_t, Error& error) {
        stack_.push_string(text);
        return hasRoom(error);
    }
    bool on_number_part(Text digits, Error&) {
        number_.append(digits.data(), digits.size());
        return true;
    }
    bool on_int64(std::int64_t number, Text, Error& error) {
        number_.clear();
        stack_.push_int64(number);
        return hasRoom(error);
    }
    bool on_uint64(std::uint64_t number, Text, Error& error) {
        number_.clear();
        stack_.push_uint64(number);
        return hasRoom(error);
    }
    bool on_double(double rounded, Text digits, Error& error) {
        number_.append(digits.data(), digits.size());
        double exact = rounded;
        std::from_chars(number_.data(), number_.data() + number_.size(), exact);
        number_.clear();
        if (!std::isfinite(exact)) {
            error = boost::json::error::exponent_overflow;
            return false;
        }
        stack_.push_double(exact);
        return hasRoom(error);
    }
    bool on_bool(bool flag, Error& error) {
        stack_.push_bool(flag);
        return hasRoom(error);
    }
    bool on_null(Error& error) {
        stack_.push_null();
        return hasRoom(error);
    }
    bool on_comment_part(Text, Error&) { return true; }
    bool on_comment(Text, Error&) { return true; }

  private:
    bool hasRoom(Error& error) {
        if (++values_ <= mostValues) return true;
        error = boost::json::error::array_too_large;
        return false;
    }

    boost::json::value_stack stack_;
    std::string number_;
    std::size_t values_ = 0;
};

/// Runs a parser with this handler over the whole text, at most 32 levels deep. Fails with `DecodingError`.
template <class Handler>
void runJSONParser(boost::json::basic_parser<Handler>& parser, std::string_view bytes) {
    boost::json::error_code error;
    const std::size_t read = parser.write_some(false, bytes.data(), bytes.size(), error);
    if (!error && read < bytes.size()) error = boost::json::error::extra_data;
    if (error) throw DecodingError("no JSON: " + error.message());
}

inline boost::json::parse_options jsonParseOptions() {
    boost::json::parse_options options;
    options.max_depth = 32;
    return options;
}

}  // namespace vark
