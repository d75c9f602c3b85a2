#pragma once

#include <optional>

#include "Hosts/CLI/Platform.h"
#include "VarkPlatform/Linux/AppBundle.h"
#include "VarkPlatform/Linux/MountedVolumes.h"
#include "VarkPlatform/Linux/XDGFolders.h"

namespace vark::cli {

/// The system that `vark` runs on.
class SystemPlatform final : public Platform {
  public:
    const Bundle& bundle() override;
    const UserFolders& folders() override;
    std::string systemVersion() override;
    Volumes& volumes() override;
    std::unique_ptr<FolderWatch> makeFolderWatch() override;
    std::unique_ptr<ClockWatch> makeClockWatch() override;
    std::vector<std::int32_t> otherSenders() override;
    std::unique_ptr<PathMonitor> makePathMonitor(const std::string& host) override;
    std::shared_ptr<VarkAPI> makeAPI(const VarkAddress& address, TokenProvider token,
                                     const APIHost& host) override;
    std::shared_ptr<SecretStore> makeKeychain() override;
    std::shared_ptr<SecretStore> makeSecretFile(const std::filesystem::path& file) override;
    std::string machineName() override;
    bool openInBrowser(const std::string& page) override;
    bool copyToClipboard(const std::string& text) override;
    std::unique_ptr<ServiceBrowser> makeServiceBrowser(Executor& executor) override;
    Task<bool> provesItself(VarkAddress address) override;

  private:
    std::optional<AppBundle> bundle_;
    std::optional<XDGFolders> folders_;
    std::optional<MountedVolumes> volumes_;
};

}  // namespace vark::cli
