#include "VarkCore/API/Messages/VarkFolder.h"

namespace vark {

std::optional<std::string> VarkFolder::areaLabel() const {
    if (!area) return std::nullopt;
    return isArchive() ? "Archive" : "Fridge";
}

VarkFolder VarkFolder::fromJSON(const boost::json::value& value) {
    if (value.is_string()) return VarkFolder{std::string(value.get_string()), std::nullopt};
    const JSONFields fields(value);
    return VarkFolder{fields.required<std::string>("name"), fields.optional<std::string>("area")};
}

void VarkFolder::encode(JSONWriter& json) const {
    json.beginObject().field("name", name).field("area", area).endObject();
}

}  // namespace vark
