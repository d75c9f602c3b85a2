#include "VarkBox/JSONBody.h"

#include <fmt/format.h>

#include <boost/json/parse.hpp>

namespace vark::box {

namespace {

boost::json::object objectFrom(const boost::json::value& value) {
    if (!value.is_object()) throw Refusal(400, "The body of this call must be a JSON object.");
    return value.get_object();
}

boost::json::value parsed(std::string_view text) {
    boost::json::error_code error;
    boost::json::value value = boost::json::parse(text, error);
    if (error) throw Refusal(400, fmt::format("The body of this call is no JSON: {}.", error.message()));
    return value;
}

}  // namespace

JSONBody::JSONBody(std::string_view text) : JSONBody(parsed(text)) {}

JSONBody::JSONBody(const boost::json::value& value) : object_(objectFrom(value)) {}

Refusal JSONBody::wrongType(std::string_view key) {
    return Refusal(400, fmt::format("The field \"{}\" has the wrong type.", key));
}

Refusal JSONBody::missing(std::string_view key) {
    return Refusal(400, fmt::format("The field \"{}\" is missing.", key));
}

}  // namespace vark::box
