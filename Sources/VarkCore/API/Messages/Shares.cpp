#include "VarkCore/API/Messages/Shares.h"

#include <fmt/format.h>

namespace vark {

std::string_view wireName(ShareAudience audience) {
    switch (audience) {
        case ShareAudience::link:
            return "link";
        case ShareAudience::domain:
            return "domain";
    }
}

std::string label(ShareAudience audience, std::string_view client) {
    switch (audience) {
        case ShareAudience::link:
            return "Anyone with the link";
        case ShareAudience::domain:
            return fmt::format("Everyone at {}", client.empty() ? "your company" : client);
    }
}

std::string_view wireName(ShareExpiry expiry) {
    switch (expiry) {
        case ShareExpiry::day:
            return "24h";
        case ShareExpiry::week:
            return "7d";
        case ShareExpiry::month:
            return "30d";
        case ShareExpiry::quarter:
            return "90d";
    }
}

std::string_view label(ShareExpiry expiry) {
    switch (expiry) {
        case ShareExpiry::day:
            return "24 hours";
        case ShareExpiry::week:
            return "7 days";
        case ShareExpiry::month:
            return "30 days";
        case ShareExpiry::quarter:
            return "90 days";
    }
}

void ShareRequest::encode(JSONWriter& json) const {
    json.beginObject().field("paths", paths).field("mode", wireName(audience));
    if (expiry) json.field("expiry", wireName(*expiry));
    if (!message.empty()) json.field("message", message);
    json.endObject();
}

VarkShare VarkShare::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    VarkShare share;
    share.url = fields.required<std::string>("url");
    share.expires = fields.optional<std::string>("expires");
    share.title = fields.optional<std::string>("title");
    share.audience = fields.optional<std::string>("audience");
    share.expiresAt = fields.optional<std::string>("expires_at");
    share.shareID = fields.optional<std::int64_t>("share_id");
    return share;
}

void VarkShare::encode(JSONWriter& json) const {
    json.beginObject();
    json.field("url", url).field("expires", expires).field("title", title).field("audience", audience);
    json.field("expires_at", expiresAt).field("share_id", shareID);
    json.endObject();
}

std::string VarkShare::describe() const {
    if (!expires || expires->empty()) return "Link copied.";
    return fmt::format("Link copied. It runs out {}.", *expires);
}

std::string VarkShare::shortDescribe() const {
    if (!expires || expires->empty()) return "Link copied";
    return fmt::format("Link copied, runs out {}", *expires);
}

}  // namespace vark
