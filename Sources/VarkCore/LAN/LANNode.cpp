#include "VarkCore/LAN/LANNode.h"

#include <limits>

#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {
namespace {

std::uint16_t portFrom(std::int64_t number) {
    if (number < 0 || number > std::numeric_limits<std::uint16_t>::max())
        throw DecodingError("port: out of range");
    return static_cast<std::uint16_t>(number);
}

}  // namespace

LANNode LANNode::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    LANNode node;
    node.name = fields.required<std::string>("name");
    node.host = fields.required<std::string>("host");
    node.ip = fields.required<std::string>("ip");
    node.port = portFrom(fields.required<std::int64_t>("port"));
    node.seen = fields.iso8601("seen");
    node.api = fields.valueOr("api", false);
    return node;
}

void LANNode::encode(JSONWriter& json) const {
    json.beginObject().field("name", name).field("host", host).field("ip", ip).field("port", port);
    json.field("seen", iso8601(seen)).field("api", api).endObject();
}

std::string LANRoute::requestTarget() const {
    std::string target = url.requestTarget();
    // An empty query leaves its "?" behind.
    if (url.query() == "") target.pop_back();
    return target;
}

}  // namespace vark
