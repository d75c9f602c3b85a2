#pragma once

#include <optional>
#include <string>

#include "VarkApp/Platform.h"
#include "VarkPlatform/Linux/AppBundle.h"
#include "VarkPlatform/Linux/Volumes/MountedVolumes.h"
#include "VarkPlatform/Linux/XDGFolders.h"

namespace vark::host {

/// The system that our programs run on.
class SystemPlatform final : public app::Platform {
  public:
    /// `via` is how the vark knows the calls of this program: "Terminal", "App" or "Finder".
    explicit SystemPlatform(std::string via) : via_(std::move(via)) {}

    const Bundle& bundle() override;
    const UserFolders& folders() override;
    std::string systemVersion() override;
    Volumes& volumes() override;
    std::unique_ptr<FolderWatch> makeFolderWatch() override;
    std::unique_ptr<ClockWatch> makeClockWatch() override;
    std::vector<std::int32_t> otherSenders() override;
    std::unique_ptr<PathMonitor> makePathMonitor(const std::string& host) override;
    std::shared_ptr<VarkAPI> makeAPI(const app::VarkAddress& address, TokenProvider token,
                                     const app::APIHost& host) override;
    std::shared_ptr<SecretStore> makeKeychain() override;
    std::shared_ptr<SecretStore> makeSecretFile(const std::filesystem::path& file) override;
    std::string machineName() override;
    bool openInBrowser(const std::string& page) override;
    bool copyToClipboard(const std::string& text) override;
    std::unique_ptr<ServiceBrowser> makeServiceBrowser(Executor& executor) override;
    Task<bool> provesItself(app::VarkAddress address) override;

  private:
    const std::string via_;
    std::unique_ptr<Bundle> bundle_;
    std::optional<XDGFolders> folders_;
    std::optional<MountedVolumes> volumes_;
};

}  // namespace vark::host
