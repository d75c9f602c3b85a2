#include "VarkCore/Connection/SharedStore.h"

#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Connection/SharedFile.h"
#include "VarkCore/Services/Bundle.h"
#include "VarkCore/Services/UserFolders.h"

namespace vark {

std::optional<std::string> SharedStore::groupID(const Bundle& bundle) {
    return bundle.infoText("VARKAppGroup");
}

SharedStore::Folder SharedStore::folder(const Bundle& bundle, const UserFolders& folders) {
    return folder(groupID(bundle), folders);
}

SharedStore::Folder SharedStore::folder(const std::optional<std::string>& group, const UserFolders& folders) {
    if (!group || group->empty()) return std::nullopt;
    return folders.groupContainer(*group);
}

std::optional<SharedConnection> SharedStore::read(const Folder& folder) {
    if (!folder) return std::nullopt;
    return SharedFile::read(SharedFiles::connection(*folder), SharedConnection::fromJSON);
}

bool SharedStore::write(const SharedConnection& connection, const Folder& folder) {
    if (!folder) return false;
    // The file holds the device token in the clear, so no one else may read it at any moment.
    return SharedFile::write(SharedFiles::connection(*folder), connection.toJSON(), Durability::synced);
}

void SharedStore::clear(const Folder& folder) {
    if (folder) SharedFile::remove(SharedFiles::connection(*folder));
}

}  // namespace vark
