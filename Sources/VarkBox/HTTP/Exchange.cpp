#include "VarkBox/HTTP/Exchange.h"

#include <boost/json/serialize.hpp>

namespace vark::box {

std::string_view nameOf(Listener listener) {
    switch (listener) {
        case Listener::app:
            return "app";
        case Listener::chunk:
            return "chunk";
        case Listener::node:
            return "node";
        case Listener::control:
            return "control";
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

BoxReply BoxReply::redirect(std::string location) {
    BoxReply reply;
    reply.status = 302;
    reply.headers.emplace_back("Location", std::move(location));
    return reply;
}

Refusal::Refusal(int status, const std::string& sentence, boost::json::object extras)
    : std::runtime_error(sentence), status_(status), extras_(std::move(extras)) {}

BoxReply Refusal::reply() const {
    boost::json::object body = extras_;
    body["error"] = what();
    return BoxReply::json(status_, body);
}

RecordAtEnd::RecordAtEnd(Site& site, const BoxRequest& request, bool hadToken) : site_(site) {
    record.listener = request.listener;
    record.method = request.method;
    record.target = request.target;
    record.hadToken = hadToken;
    record.via = request.via;
    record.userAgent = request.userAgent;
    record.node = request.node;
}

void RecordAtEnd::answered(int status) {
    record.status = status;
    write();
}

void RecordAtEnd::write() {
    if (!written_) site_.record(record);
    written_ = true;
}

}  // namespace vark::box
