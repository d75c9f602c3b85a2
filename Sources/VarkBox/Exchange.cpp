#include "VarkBox/Exchange.h"

#include <boost/json/serialize.hpp>

namespace vark::box {

std::string_view nameOf(Listener listener) {
    switch (listener) {
        case Listener::app:
            return "app";
        case Listener::chunk:
            return "chunk";
    }
    return "";
}

std::optional<std::string_view> BoxRequest::queryValue(std::string_view name) const {
    for (const auto& [key, value] : query) {
        if (key == name) return value;
    }
    return std::nullopt;
}

BoxReply BoxReply::json(int status, const boost::json::value& value) {
    BoxReply reply;
    reply.status = status;
    reply.body = boost::json::serialize(value);
    return reply;
}

BoxReply BoxReply::plain(int status, std::string text) {
    BoxReply reply;
    reply.status = status;
    reply.body = std::move(text);
    reply.contentType = "text/plain; charset=utf-8";
    return reply;
}

Refusal::Refusal(int status, const std::string& sentence, boost::json::object extras)
    : std::runtime_error(sentence), status_(status), extras_(std::move(extras)) {}

BoxReply Refusal::reply() const {
    boost::json::object body = extras_;
    body["error"] = what();
    return BoxReply::json(status_, body);
}

}  // namespace vark::box
