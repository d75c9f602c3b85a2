#include "VarkCore/API/Messages/Ingest.h"

namespace vark {

IngestStart IngestStart::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    return IngestStart{fields.required<std::int64_t>("id"), fields.required<bool>("fits"),
                       fields.optional<std::int64_t>("free")};
}

void IngestFile::encode(JSONWriter& json) const {
    json.beginObject();
    json.field("source", source).field("path", path).field("size", size).field("why", why);
    json.endObject();
}

}  // namespace vark
