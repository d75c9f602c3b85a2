#include "Hosts/CLI/SystemPlatform.h"

#include "VarkCore/API/SessionSettings.h"
#include "VarkPlatform/Linux/CurlSession.h"
#include "VarkPlatform/Linux/NetlinkPathMonitor.h"
#include "VarkPlatform/Linux/OfficeNodes.h"

namespace vark::cli {

namespace {

/// How the vark knows the calls of this program.
constexpr const char* via = "Terminal";

std::optional<std::string> authorityOf(const VarkAddress& address) {
    return address.authority ? std::optional(address.authority->string()) : std::nullopt;
}

HTTPSessionSettings settingsFor(const VarkAddress& address) {
    return sessionSettings(via, authorityOf(address));
}

/// An API with what it stands on, in the order in which they end.
struct Line {
    Line(const VarkAddress& address, TokenProvider token, int chunksAtOnce, Executor& executor, Clock& clock)
        : session(settingsFor(address)),
          nodes(authorityOf(address)),
          writers(static_cast<std::size_t>(chunksAtOnce)),
          api({.session = session,
               .lan = nodes.router,
               .nodes = nodes.transfer,
               .writers = writers,
               .executor = executor,
               .clock = clock},
              address.url, std::move(token)) {}

    CurlSession session;
    OfficeNodes nodes;
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

Volumes& SystemPlatform::volumes() {
    if (!volumes_) volumes_.emplace();
    return *volumes_;
}

std::unique_ptr<PathMonitor> SystemPlatform::makePathMonitor(const std::string& host) {
    return std::make_unique<NetlinkPathMonitor>(host.empty() ? std::nullopt : std::optional(host));
}

std::shared_ptr<VarkAPI> SystemPlatform::makeAPI(const VarkAddress& address, TokenProvider token,
                                                 int chunksAtOnce, Executor& executor, Clock& clock) {
    auto line = std::make_shared<Line>(address, std::move(token), chunksAtOnce, executor, clock);
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
