#include "Hosts/Common/SystemPlatform.h"

#include <limits.h>
#include <unistd.h>

#include <array>

#include "Hosts/Common/ProfileBundle.h"
#include "VarkPlatform/Linux/Avahi/AvahiBrowser.h"
#include "VarkPlatform/Linux/DesktopTools.h"
#include "VarkPlatform/Linux/InotifyFolderWatch.h"
#include "VarkPlatform/Linux/Network/CurlSession.h"
#include "VarkPlatform/Linux/Network/NetlinkPathMonitor.h"
#include "VarkPlatform/Linux/Network/TLSDialer.h"
#include "VarkPlatform/Linux/ProcessList.h"
#include "VarkPlatform/Linux/Secrets/FileSecretStore.h"
#include "VarkPlatform/Linux/Secrets/SecretServiceStore.h"
#include "VarkPlatform/Linux/SystemVersion.h"
#include "VarkPlatform/Linux/TimerClockWatch.h"

namespace vark::host {

using app::APIHost;
using app::VarkAddress;

namespace {

/// Files that are read for nodes or written from them side by side: a turn of each is short.
constexpr std::size_t filesOverNodesAtOnce = 4;

std::optional<std::string> authorityOf(const VarkAddress& address) {
    return address.authority ? std::optional(address.authority->string()) : std::nullopt;
}

/// An API with what it stands on, in the order in which they end.
struct Line {
    Line(const VarkAddress& address, const std::string& via, TokenProvider token, const APIHost& host)
        : dialer(authorityOf(address)),
          writers(static_cast<std::size_t>(host.mostChunksAtOnce)),
          nodes(dialer, nodeFiles),
          api({.makeSession =
                   [](const HTTPSessionSettings& settings) {
                       return std::make_shared<CurlSession>(settings);
                   },
               .via = via,
               .authorityFile = authorityOf(address),
               .lan = host.lan,
               .nodes = nodes,
               .writers = writers,
               .executor = host.executor,
               .clock = host.clock,
               .now = systemDate,
               .ways = &host.ways},
              address.url, std::move(token)) {}

    TLSDialer dialer;
    BlockingPool writers;
    BlockingPool nodeFiles{filesOverNodesAtOnce};
    LANTransfer nodes;
    HTTPVarkAPI api;
};

}  // namespace

const Bundle& SystemPlatform::bundle() {
    if (bundle_) return *bundle_;
    const std::string profile = ProfileBundle::profileOfEnvironment();
    auto whole = std::make_unique<AppBundle>();
    if (profile.empty()) {
        bundle_ = std::move(whole);
    } else {
        bundle_ = std::make_unique<ProfileBundle>(std::move(whole), profile);
    }
    return *bundle_;
}

const UserFolders& SystemPlatform::folders() {
    if (!folders_) folders_.emplace();
    return *folders_;
}

std::string SystemPlatform::systemVersion() {
    return vark::systemVersion();
}

Volumes& SystemPlatform::volumes() {
    if (!volumes_) volumes_.emplace();
    return *volumes_;
}

std::unique_ptr<FolderWatch> SystemPlatform::makeFolderWatch() {
    return std::make_unique<InotifyFolderWatch>();
}

std::unique_ptr<ClockWatch> SystemPlatform::makeClockWatch() {
    return std::make_unique<TimerClockWatch>();
}

std::vector<std::int32_t> SystemPlatform::otherSenders() {
    constexpr std::array<std::string_view, 3> sending = {"send", "ingest", "run"};
    return otherCopiesDoing(sending);
}

std::unique_ptr<PathMonitor> SystemPlatform::makePathMonitor(const std::string& host) {
    return std::make_unique<NetlinkPathMonitor>(host.empty() ? std::nullopt : std::optional(host));
}

std::shared_ptr<VarkAPI> SystemPlatform::makeAPI(const VarkAddress& address, TokenProvider token,
                                                 const APIHost& host) {
    auto line = std::make_shared<Line>(address, via_, std::move(token), host);
    return {line, &line->api};
}

std::shared_ptr<SecretStore> SystemPlatform::makeKeychain() {
    return std::make_shared<SecretServiceStore>();
}

std::shared_ptr<SecretStore> SystemPlatform::makeSecretFile(const std::filesystem::path& file) {
    return std::make_shared<FileSecretStore>(file);
}

std::string SystemPlatform::machineName() {
    char name[HOST_NAME_MAX + 1] = {};
    return gethostname(name, sizeof name - 1) == 0 && name[0] != '\0' ? name : "Linux";
}

bool SystemPlatform::openInBrowser(const std::string& page) {
    return DesktopTools::openInBrowser(page);
}

bool SystemPlatform::copyToClipboard(const std::string& text) {
    return DesktopTools::copyToClipboard(text);
}

std::unique_ptr<ServiceBrowser> SystemPlatform::makeServiceBrowser(Executor& executor) {
    return std::make_unique<AvahiBrowser>(executor);
}

Task<bool> SystemPlatform::provesItself(VarkAddress address) {
    HTTPSessionSettings settings;
    settings.authorityFile = authorityOf(address);
    CurlSession session(std::move(settings));
    try {
        co_await session.data(HTTPRequest{.url = address.url, .headers = {}, .body = {}});
    } catch (const HTTPError& error) {
        co_return error.code() != HTTPError::untrusted;
    }
    co_return true;
}

}  // namespace vark::host
