#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "VarkCore/API/HTTPVarkAPI.h"
#include "VarkCore/Foundation/URL.h"
#include "VarkCore/Services/Bundle.h"
#include "VarkCore/Services/ClockWatch.h"
#include "VarkCore/Services/FolderWatch.h"
#include "VarkCore/Services/PathMonitor.h"
#include "VarkCore/Services/SecretStore.h"
#include "VarkCore/Services/ServiceBrowser.h"
#include "VarkCore/Services/UserFolders.h"
#include "VarkCore/Services/Volumes.h"

namespace vark::app {

/// Where a vark is, and by what it is trusted beside the system's own roots.
struct VarkAddress {
    URL url;
    std::optional<std::filesystem::path> authority;
};

/// What an API is given of the run that it serves. All of it outlives the API.
struct APIHost {
    LANRouter& lan;
    WaysTaken& ways;
    Executor& executor;
    Clock& clock;
    int mostChunksAtOnce = 1;
};

/// What the application needs of the system. Each service is built when it is first asked for. Owned by the
/// main and outlives everything else; on the main thread only, but for the stores of secrets, which any
/// thread may make.
class Platform {
  public:
    virtual ~Platform() = default;

    virtual const Bundle& bundle() = 0;
    virtual const UserFolders& folders() = 0;
    virtual std::string systemVersion() = 0;
    virtual Volumes& volumes() = 0;
    virtual std::unique_ptr<FolderWatch> makeFolderWatch() = 0;
    virtual std::unique_ptr<ClockWatch> makeClockWatch() = 0;
    /// Other processes of this program that may be working on a queue.
    virtual std::vector<std::int32_t> otherSenders() = 0;
    /// Of the way to that host; empty for the way out into the world alone.
    virtual std::unique_ptr<PathMonitor> makePathMonitor(const std::string& host) = 0;
    /// An API that goes by the nodes of `lan` where it can.
    virtual std::shared_ptr<VarkAPI> makeAPI(const VarkAddress& address, TokenProvider token,
                                             const APIHost& host) = 0;
    virtual std::shared_ptr<SecretStore> makeKeychain() = 0;
    /// Secrets in a file instead.
    virtual std::shared_ptr<SecretStore> makeSecretFile(const std::filesystem::path& file) = 0;
    virtual std::string machineName() = 0;
    /// Whether the desktop was asked to show the page, and whether its clipboard holds the text.
    virtual bool openInBrowser(const std::string& page) = 0;
    virtual bool copyToClipboard(const std::string& text) = 0;
    virtual std::unique_ptr<ServiceBrowser> makeServiceBrowser(Executor& executor) = 0;
    /// Whether what answers at the address proves who it is. True as well when nothing answers.
    virtual Task<bool> provesItself(VarkAddress address) = 0;
};

}  // namespace vark::app
