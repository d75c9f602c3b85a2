#include "Hosts/CLI/SystemPlatform.h"

#include <array>

#include "VarkCore/API/SessionSettings.h"
#include "VarkPlatform/Linux/CurlSession.h"
#include "VarkPlatform/Linux/NetlinkPathMonitor.h"
#include "VarkPlatform/Linux/ProcessList.h"
#include "VarkPlatform/Linux/SystemVersion.h"

namespace vark::cli {

namespace {

/// How the vark knows the calls of this program.
constexpr const char* via = "Terminal";

HTTPSessionSettings settingsFor(const VarkAddress& address) {
    std::optional<std::string> authority;
    if (address.authority) authority = address.authority->string();
    return sessionSettings(via, authority);
}

/// An API with what it stands on, in the order in which they end.
struct Line {
    Line(const VarkAddress& address, TokenProvider token, int chunksAtOnce)
        : session(settingsFor(address)),
          writers(static_cast<std::size_t>(chunksAtOnce)),
          api(session, address.url, std::move(token), writers) {}

    CurlSession session;
    BlockingPool writers;
    HTTPVarkAPI api;
};

}  // namespace

const Bundle& SystemPlatform::bundle() {
    if (!bundle_) bundle_.emplace();
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

std::vector<std::int32_t> SystemPlatform::otherSenders() {
    constexpr std::array<std::string_view, 2> sending = {"send", "ingest"};
    return otherCopiesDoing(sending);
}

std::unique_ptr<PathMonitor> SystemPlatform::makePathMonitor(const std::string& host) {
    return std::make_unique<NetlinkPathMonitor>(host.empty() ? std::nullopt : std::optional(host));
}

std::shared_ptr<VarkAPI> SystemPlatform::makeAPI(const VarkAddress& address, TokenProvider token,
                                                 int chunksAtOnce) {
    auto line = std::make_shared<Line>(address, std::move(token), chunksAtOnce);
    return {line, &line->api};
}

Task<bool> SystemPlatform::provesItself(VarkAddress address) {
    CurlSession session(settingsFor(address));
    try {
        co_await session.data(HTTPRequest{.url = address.url, .headers = {}, .body = {}});
    } catch (const HTTPError& error) {
        co_return error.code() != HTTPError::untrusted;
    }
    co_return true;
}

}  // namespace vark::cli
