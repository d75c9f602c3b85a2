#include "VarkCore/API/NodeCalls.h"

#include <utility>

#include "VarkCore/Foundation/Domain.h"
#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Services/Limits.h"

namespace vark {
namespace {

const HTTPHeader acceptJSON{"Accept", "application/json"};

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
class NodeCalls::ProbePermit {
  public:
    ProbePermit(NodeCalls& calls, std::string host) : calls_(calls), host_(std::move(host)) {
        const Locked hold(calls_.lock_);
        granted_ = calls_.probed_.insert(host_).second;
    }
    ProbePermit(const ProbePermit&) = delete;
    ProbePermit& operator=(const ProbePermit&) = delete;
    ~ProbePermit() {
        if (!granted_) return;
        const Locked hold(calls_.lock_);
        calls_.probed_.erase(host_);
    }
    /// False when another call is at it.
    explicit operator bool() const { return granted_; }

  private:
    NodeCalls& calls_;
    const std::string host_;
    bool granted_ = false;
};

Task<std::optional<APIAnswer>> NodeCalls::send(HTTPRequest request) {
    const std::optional<LANRoute> way = co_await route(request.url);
    if (!way) co_return std::nullopt;
    std::optional<std::string> body;
    if (!request.body.empty()) body = std::move(request.body);
    Task<LANTransfer::Response> exchange =
        line_.nodes.request(request.method, *way, headersForNode(request), std::move(body));
    std::optional<LANTransfer::Response> answer = co_await answerOf(way->host, std::move(exchange));
    if (!answer) co_return std::nullopt;
    co_return APIAnswer{answer->status, std::move(answer->body)};
}

Task<std::optional<LANTransfer::Response>> NodeCalls::answerOf(std::string host,
                                                               Task<LANTransfer::Response> exchange) {
    LANTransfer::Failure failure = LANTransfer::Failure::cancelled();
    try {
        co_return co_await std::move(exchange);
    } catch (const LANTransfer::Failure& error) {
        failure = error;
    }
    co_await checkCancellation();
    if (failure.kind() == LANTransfer::Failure::cancelledKind) throw CancellationError();
    line_.lan.markBad(host, line_.now());
    co_return std::nullopt;
}

Task<std::optional<LANRoute>> NodeCalls::route(URL url) {
    if (lowercased(url.host()) != lowercased(line_.baseURL.host())) co_return std::nullopt;
    std::optional<LANRoute> route = routeToAsk(url);
    if (!route || line_.lan.isAPIVerified(route->host)) co_return route;

    // Whoever comes while a node proves itself does not wait for that.
    const ProbePermit permit(*this, lowercased(route->host));
    if (!permit) co_return std::nullopt;
    const std::optional<LANRoute> probe = routeToAsk(line_.baseURL.appendingPath("api/whoami"));
    // Another thread may have found the node bad meanwhile, and then this would prove another one.
    if (!probe || probe->host != route->host) co_return std::nullopt;
    const bool isProven = co_await provesItself(*probe);
    if (!isProven) co_return std::nullopt;
    line_.lan.setAPIVerified(route->host);
    co_return route;
}

std::optional<LANRoute> NodeCalls::routeToAsk(const URL& url) const {
    return line_.lan.apiRoute(url, line_.now(),
                              [this](const LANNode& node) { return standsForTheVark(node.host); });
}

bool NodeCalls::standsForTheVark(const std::string& host) const {
    if (haveOneOwner(host, line_.baseURL.host())) return true;
    const Locked hold(lock_);
    return vouchedFor_.contains(lowercased(host));
}

void NodeCalls::vouchedFor(const std::string& host) {
    const Locked hold(lock_);
    vouchedFor_.insert(lowercased(host));
}

std::optional<LANRoute> NodeCalls::provenRoute(const URL& url) const {
    std::optional<LANRoute> route = routeToAsk(url);
    if (route && line_.lan.isAPIVerified(route->host)) return route;
    return std::nullopt;
}

Task<bool> NodeCalls::provesItself(LANRoute probe) {
    LANTransfer::Headers headers{acceptJSON};
    if (const std::optional<std::string> token = line_.token())
        headers.push_back({"Authorization", "Bearer " + *token});
    Task<LANTransfer::Response> exchange =
        line_.nodes.request("GET", probe, std::move(headers), std::nullopt, limits::provingItself);
    const std::optional<LANTransfer::Response> answer = co_await answerOf(probe.host, std::move(exchange));
    if (!answer) co_return false;
    // A node that refuses a stale token speaks the API all the same.
    const bool isAPI = (answer->status == 200 || answer->status == 401) && isJSONObject(answer->body);
    if (!isAPI) line_.lan.markBad(probe.host, line_.now());
    co_return isAPI;
}

}  // namespace vark
