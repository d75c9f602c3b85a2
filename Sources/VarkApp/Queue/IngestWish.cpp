#include "VarkApp/Queue/IngestWish.h"

namespace vark::app {

IngestWish IngestWish::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    IngestWish wish;
    wish.volume.name = fields.required<std::string>("volume");
    wish.volume.path = fields.required<std::string>("path");
    wish.volume.id = fields.optional<std::string>("id");
    wish.isCard = fields.required<bool>("isCard");
    wish.destination = fields.required<std::string>("destination");
    wish.asksForDestination = fields.required<bool>("asksForDestination");
    wish.title = fields.required<std::string>("title");
    wish.leaveOut = fields.required<std::vector<std::string>>("leaveOut");
    wish.emailMe = fields.required<bool>("emailMe");
    return wish;
}

void IngestWish::encode(JSONWriter& json) const {
    json.field("volume", volume.name).field("path", volume.path.string()).field("id", volume.id);
    json.field("isCard", isCard).field("destination", destination);
    json.field("asksForDestination", asksForDestination).field("title", title);
    json.field("leaveOut", leaveOut).field("emailMe", emailMe);
}

}  // namespace vark::app
