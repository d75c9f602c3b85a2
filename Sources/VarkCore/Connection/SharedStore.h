#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "VarkCore/Connection/SharedConnection.h"

namespace vark {

class Bundle;
class UserFolders;

/// The folder that our processes share, and the connection record in it. Functions only; any thread. Nothing
/// here fails: a file that cannot be read whole is no connection, and writers answer true or false.
struct SharedStore {
    using Folder = std::optional<std::filesystem::path>;

    static std::optional<std::string> groupID(const Bundle& bundle);
    /// Of the running bundle's own group.
    static Folder folder(const Bundle& bundle, const UserFolders& folders);
    /// An empty group has no folder, just as none.
    static Folder folder(const std::optional<std::string>& group, const UserFolders& folders);

    static std::optional<SharedConnection> read(const Folder& folder);
    static bool write(const SharedConnection& connection, const Folder& folder);
    static void clear(const Folder& folder);
};

}  // namespace vark
