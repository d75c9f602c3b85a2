#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace vark {

/// Where the system keeps the files of the person who runs the program. Owned by the host; any thread may
/// ask. A folder that is named here need not exist yet.
class UserFolders {
  public:
    virtual ~UserFolders() = default;

    virtual std::filesystem::path home() const = 0;
    virtual std::optional<std::filesystem::path> applicationSupport() const = 0;
    /// The folder in which the folder "Logs" lies.
    virtual std::optional<std::filesystem::path> library() const = 0;
    virtual std::optional<std::filesystem::path> downloads() const = 0;
    /// The folder that all processes of the app group `identifier` share, private to the person. Nothing when
    /// it cannot be had.
    virtual std::optional<std::filesystem::path> groupContainer(std::string_view identifier) const = 0;
    /// Why it cannot be had, in a finished sentence; nothing when it can.
    virtual std::optional<std::string> groupContainerTrouble(std::string_view identifier) const = 0;
};

}  // namespace vark
