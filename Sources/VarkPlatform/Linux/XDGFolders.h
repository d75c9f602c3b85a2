#pragma once

#include "VarkCore/Services/UserFolders.h"

namespace vark {

/// The person's folders as the desktop lays them out. What the environment says is read once, at the
/// beginning.
class XDGFolders final : public UserFolders {
  public:
    XDGFolders();

    std::filesystem::path home() const override { return home_; }
    std::optional<std::filesystem::path> applicationSupport() const override { return data_; }
    std::optional<std::filesystem::path> library() const override { return state_; }
    std::optional<std::filesystem::path> downloads() const override;
    /// Both make the folder when it is not there. It cannot be had when that fails, when it belongs to
    /// somebody else, or when `identifier` is no name of a folder.
    std::optional<std::filesystem::path> groupContainer(std::string_view identifier) const override;
    std::optional<std::string> groupContainerTrouble(std::string_view identifier) const override;

  private:
    std::filesystem::path groupFolder(std::string_view identifier) const;

    std::filesystem::path home_;
    std::filesystem::path data_;
    std::filesystem::path state_;
    std::filesystem::path config_;
};

}  // namespace vark
