#pragma once

#include <boost/json/object.hpp>
#include <boost/json/value_to.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VarkBox/HTTP/Exchange.h"

namespace vark::box {

/// The fields of a JSON object that came from outside. A field that is missing though it is needed, or that
/// has the wrong type, is refused with 400 and a sentence that names it.
class JSONBody {
  public:
    /// Refuses what is not a JSON object.
    explicit JSONBody(std::string_view text);

    template <class T>
    std::optional<T> optional(std::string_view key) const {
        const boost::json::value* value = object_.if_contains(key);
        if (value == nullptr || value->is_null()) return std::nullopt;
        auto result = boost::json::try_value_to<T>(*value);
        if (!result) throw wrongType(key);
        return *result;
    }

    template <class T>
    T required(std::string_view key) const {
        std::optional<T> value = optional<T>(key);
        if (!value) throw missing(key);
        return *value;
    }

    const boost::json::object& object() const { return object_; }

  private:
    static Refusal wrongType(std::string_view key);
    static Refusal missing(std::string_view key);

    boost::json::object object_;
};

}  // namespace vark::box
