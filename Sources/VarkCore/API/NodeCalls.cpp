#include <utility>

#include "VarkCore/API/HTTPVarkAPI.h"
#include "VarkCore/Foundation/Domain.h"
#include "VarkCore/Foundation/JSON.h"
#include "VarkCore/Foundation/Text.h"

// The short way of a call through a node of this network, in front of the way over the internet. A try that
// fails costs the caller time and nothing else.

namespace vark {
namespace {

const HTTPHeader acceptJSON{"Accept", "application/json"};

/// A node of this office answers at once; the call that waits for the proof has the internet.
constexpr std::chrono::seconds longestProbe{10};

bool isJSONObject(std::string_view body) {
    try {
        return parseJSON(body).is_object();
    } catch (const DecodingError&) {
        return false;
    }
}

/// What goes along to a node: a node is told no more than it needs.
LANTransfer::Headers headersForNode(const HTTPRequest& request) {
    LANTransfer::Headers headers{acceptJSON};
    for (std::string_view name : {"Authorization", "Content-Type"}) {
        for (const HTTPHeader& header : request.headers) {
            if (header.name == name) headers.push_back(header);
        }
    }
    return headers;
}

}  // namespace

/// A host whose proof is under way, from here to the end of the block.
class HTTPVarkAPI::ProbePermit {
  public:
    ProbePermit(HTTPVarkAPI& api, std::string host) : api_(api), host_(std::move(host)) {
        const Locked hold(api_.probeLock_);
        granted_ = api_.probed_.insert(host_).second;
    }
    ProbePermit(const ProbePermit&) = delete;
    ProbePermit& operator=(const ProbePermit&) = delete;
    ~ProbePermit() {
        if (!granted_) return;
        const Locked hold(api_.probeLock_);
        api_.probed_.erase(host_);
    }
    /// False when another call is at it.
    explicit operator bool() const { return granted_; }

  private:
    HTTPVarkAPI& api_;
    const std::string host_;
    bool granted_ = false;
};

Task<std::optional<APIAnswer>> HTTPVarkAPI::sendOverNode(HTTPRequest request, LANRoute route, Auth auth) {
    std::optional<std::string> body;
    if (!request.body.empty()) body = std::move(request.body);
    Task<LANTransfer::Response> exchange =
        nodes_.request(request.method, route, headersForNode(request), std::move(body));
    std::optional<LANTransfer::Response> answer = co_await answerOfNode(route.host, std::move(exchange));
    if (!answer) co_return std::nullopt;
    if (answer->status == 401 && auth == Auth::token) throw serverErrorFor(401, answer->body);
    co_return APIAnswer{answer->status, std::move(answer->body)};
}

Task<std::optional<LANTransfer::Response>> HTTPVarkAPI::answerOfNode(std::string host,
                                                                     Task<LANTransfer::Response> exchange) {
    LANTransfer::Failure failure = LANTransfer::Failure::cancelled();
    try {
        co_return co_await std::move(exchange);
    } catch (const LANTransfer::Failure& error) {
        failure = error;
    }
    co_await checkCancellation();
    if (failure.kind() == LANTransfer::Failure::cancelledKind) throw CancellationError();
    lan_.markBad(host, now_());
    co_return std::nullopt;
}

Task<std::optional<LANRoute>> HTTPVarkAPI::lanAPIRoute(URL url) {
    if (lowercased(url.host()) != lowercased(baseURL_.host())) co_return std::nullopt;
    std::optional<LANRoute> route = apiRoute(url);
    if (!route || lan_.isAPIVerified(route->host)) co_return route;

    // Whoever comes while a node proves itself does not wait for that.
    const ProbePermit permit(*this, lowercased(route->host));
    if (!permit) co_return std::nullopt;
    const std::optional<LANRoute> probe = apiRoute(baseURL_.appendingPath("api/whoami"));
    // Another thread may have found the node bad meanwhile, and then this would prove another one.
    if (!probe || probe->host != route->host) co_return std::nullopt;
    const bool isProven = co_await provesItself(*probe);
    if (!isProven) co_return std::nullopt;
    lan_.setAPIVerified(route->host);
    co_return route;
}

std::optional<LANRoute> HTTPVarkAPI::apiRoute(const URL& url) const {
    return lan_.apiRoute(url, now_(), [this](const LANNode& node) { return standsForTheVark(node.host); });
}

bool HTTPVarkAPI::standsForTheVark(const std::string& host) const {
    if (haveOneOwner(host, baseURL_.host())) return true;
    const Locked hold(chunkLock_);
    return namedByTheVark_.contains(lowercased(host));
}

std::optional<LANRoute> HTTPVarkAPI::verifiedRoute(const URL& url) const {
    std::optional<LANRoute> route = apiRoute(url);
    if (route && lan_.isAPIVerified(route->host)) return route;
    return std::nullopt;
}

Task<bool> HTTPVarkAPI::provesItself(LANRoute probe) {
    LANTransfer::Headers headers{acceptJSON};
    if (const std::optional<std::string> token = token_())
        headers.push_back({"Authorization", "Bearer " + *token});
    Task<LANTransfer::Response> exchange =
        nodes_.request("GET", probe, std::move(headers), std::nullopt, longestProbe);
    const std::optional<LANTransfer::Response> answer =
        co_await answerOfNode(probe.host, std::move(exchange));
    if (!answer) co_return false;
    // A node that refuses a stale token speaks the API all the same.
    const bool isAPI = (answer->status == 200 || answer->status == 401) && isJSONObject(answer->body);
    if (!isAPI) lan_.markBad(probe.host, now_());
    co_return isAPI;
}

}  // namespace vark
