#include "VarkCore/Connection/SharedStore.h"

#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/JSON.h"
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
    try {
        return SharedConnection::fromJSON(parseJSON(readWholeFile(SharedFiles::connection(*folder))));
    } catch (const FileError&) {
        return std::nullopt;
    } catch (const DecodingError&) {
        return std::nullopt;
    }
}

bool SharedStore::write(const SharedConnection& connection, const Folder& folder) {
    if (!folder) return false;
    std::error_code failure;
    std::filesystem::create_directories(*folder, failure);
    if (failure) return false;
    try {
        // The file holds the device token in the clear, so no one else may read it at any moment.
        writeAtomically(SharedFiles::connection(*folder), connection.toJSON(), 0600);
    } catch (const FileError&) {
        return false;
    }
    return true;
}

void SharedStore::clear(const Folder& folder) {
    if (!folder) return;
    std::error_code ignored;
    std::filesystem::remove(SharedFiles::connection(*folder), ignored);
}

}  // namespace vark
