#include "VarkCore/Connection/Locations.h"

#include "VarkCore/Services/UserFolders.h"

namespace vark {

std::filesystem::path Locations::storageFolder() const {
    const std::filesystem::path base =
        folders_.applicationSupport().value_or(folders_.home() / "Library" / "Application Support");
    identity_.carryOverFolder(base);
    return base / identity_.folderName();
}

std::filesystem::path Locations::logsFolder() const {
    const std::filesystem::path base = folders_.library().value_or(folders_.home() / "Library") / "Logs";
    identity_.carryOverFolder(base);
    return base / identity_.folderName();
}

}  // namespace vark
