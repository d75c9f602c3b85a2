#include "VarkProvider/AnchorMemory.h"

#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Connection/SharedFile.h"

namespace vark {
namespace {

struct Kept {
    std::string version;
    Date at;

    static Kept fromJSON(const boost::json::value& value) {
        const JSONFields fields(value);
        return {fields.required<std::string>("version"), Date{fields.required<double>("at")}};
    }
    std::string toJSON() const {
        JSONWriter json;
        json.beginObject().field("version", version).field("at", at.sinceReference).endObject();
        return json.take();
    }
};

}  // namespace

bool AnchorMemory::vouch(std::string_view version, const Folder& folder, Date at) {
    if (version.empty() || !folder) return false;
    const Kept kept{std::string(version), at};
    return SharedFile::write(SharedFiles::anchor(*folder), kept.toJSON(), Durability::synced);
}

bool AnchorMemory::hasVouched(std::string_view version, const Folder& folder) {
    if (version.empty() || !folder) return true;
    const std::optional<Kept> kept = SharedFile::read(SharedFiles::anchor(*folder), Kept::fromJSON);
    return kept && kept->version == version;
}

void AnchorMemory::forget(const Folder& folder) {
    if (folder) SharedFile::remove(SharedFiles::anchor(*folder));
}

}  // namespace vark
