#include "VarkCore/Connection/SharedLevel.h"

#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Connection/SharedFile.h"

namespace vark {
namespace {

constexpr double secondsBelieved = 600;

}  // namespace

SharedLevel SharedLevel::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    return {.level = fields.required<std::int64_t>("level"),
            .jobNumbers = fields.required<bool>("jobNumbers"),
            .at = Date{fields.required<double>("at")}};
}

std::string SharedLevel::toJSON() const {
    JSONWriter json;
    json.beginObject().field("level", level).field("jobNumbers", jobNumbers);
    json.field("at", at.sinceReference).endObject();
    return json.take();
}

bool SharedLevel::isFresh(Date now) const {
    const double age = now - at;
    return age >= 0 && age < secondsBelieved;
}

std::optional<SharedLevel> SharedLevelStore::read(const SharedStore::Folder& folder) {
    if (!folder) return std::nullopt;
    return SharedFile::read(SharedFiles::level(*folder), SharedLevel::fromJSON);
}

bool SharedLevelStore::write(const SharedLevel& level, const SharedStore::Folder& folder) {
    if (!folder) return false;
    return SharedFile::write(SharedFiles::level(*folder), level.toJSON(), Durability::cached);
}

void SharedLevelStore::clear(const SharedStore::Folder& folder) {
    if (folder) SharedFile::remove(SharedFiles::level(*folder));
}

}  // namespace vark
