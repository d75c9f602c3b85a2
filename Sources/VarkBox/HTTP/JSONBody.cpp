#include "VarkBox/HTTP/JSONBody.h"

#include <fmt/format.h>

#include <boost/json/parse.hpp>

namespace vark::box {

namespace {

boost::json::object objectFrom(std::string_view text) {
    boost::json::error_code error;
    boost::json::value value = boost::json::parse(text, error);
    if (error) throw Refusal(400, "That is no JSON. Give one JSON object.");
    if (!value.is_object()) throw Refusal(400, "That JSON is no object. Give one JSON object.");
    return std::move(value.get_object());
}

}  // namespace

JSONBody::JSONBody(std::string_view text) : object_(objectFrom(text)) {}

Refusal JSONBody::wrongType(std::string_view key) {
    return Refusal(400, fmt::format("The field \"{}\" has the wrong type.", key));
}

Refusal JSONBody::missing(std::string_view key) {
    return Refusal(400, fmt::format("The field \"{}\" is missing.", key));
}

}  // namespace vark::box
