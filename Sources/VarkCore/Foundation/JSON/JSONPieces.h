#pragma once

#include <boost/json/value.hpp>
#include <functional>
#include <span>
#include <string_view>

namespace vark {

/// Where the elements of a long array go: one call for each, in order. The value is gone when the call
/// returns.
struct JSONPieces {
    /// The array stands under this key of the object `within`.
    std::string_view key;
    std::function<void()> begin;
    std::function<void(const boost::json::value&)> element;
};

/// Parses like `parseJSON`, but holds only one element at a time of the named arrays of the object under the
/// key `within`; in the answer these arrays are empty. `begin` is called before the first element, and again
/// if a damaged text has the key twice: what came before does not count then.
boost::json::value parseJSONInPieces(std::string_view bytes, std::string_view within,
                                     std::span<const JSONPieces> arrays);

}  // namespace vark
