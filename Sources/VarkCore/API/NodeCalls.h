#pragma once

#include <optional>
#include <set>
#include <string>

#include "VarkCore/API/Answers.h"
#include "VarkCore/API/VarkLine.h"
#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark {

/// The short way of a call through a node of this network, in front of the way over the internet. A try that
/// fails costs the caller time and nothing else. Owned by the API; any thread.
class NodeCalls {
  public:
    explicit NodeCalls(const VarkLine& line) : line_(line) {}

    /// Nothing when there is no such way, or when it failed: the request is for the internet then.
    Task<std::optional<APIAnswer>> send(HTTPRequest request);
    /// Nothing when the exchange ended in a failure of the node, which is marked bad for it.
    Task<std::optional<LANTransfer::Response>> answerOf(std::string host,
                                                        Task<LANTransfer::Response> exchange);
    /// The way to an address of the application's host through a node, which proves first that it speaks the
    /// API.
    Task<std::optional<LANRoute>> route(URL url);
    /// The same through a node that has done so before.
    std::optional<LANRoute> provenRoute(const URL& url) const;
    /// The vark has sent us to that host, over TLS: it may be given the token too.
    void vouchedFor(const std::string& host);

  private:
    /// Through the first node that may be asked at all, since it would get the token.
    std::optional<LANRoute> routeToAsk(const URL& url) const;
    /// A good certificate only says whose node it is: the token is for those of the vark's own domain, and
    /// for those that the vark has sent us to.
    bool standsForTheVark(const std::string& host) const;
    /// Marks the node bad if not.
    Task<bool> provesItself(LANRoute probe);

    const VarkLine& line_;
    class ProbePermit;
    mutable Mutex lock_;
    /// The hosts of the nodes that are proving themselves just now.
    std::set<std::string> probed_ VARK_GUARDED_BY(lock_);
    /// Lower-cased.
    std::set<std::string> vouchedFor_ VARK_GUARDED_BY(lock_);
};

}  // namespace vark
