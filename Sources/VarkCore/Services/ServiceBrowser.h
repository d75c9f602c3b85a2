#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VarkCore/Concurrency/Task.h"

namespace vark {

/// A service that is announced on this network. What tells it apart is `name`; the rest is for `locate`.
struct FoundService {
    std::string name;
    /// Keys as they are announced; a key without a value has an empty one.
    std::map<std::string, std::string> text;
    /// Which network it was seen on, in the words of the implementation.
    std::string whereabouts;

    auto operator<=>(const FoundService&) const = default;
};

/// How browsing stands. `Denied` is what a person can mend: the system does not let this process look.
struct BrowsingReady {};
struct BrowsingFailed {
    std::string description;
};
struct BrowsingDenied {};
using BrowsingState = std::variant<BrowsingReady, BrowsingFailed, BrowsingDenied>;

/// Looks for services on the local network (DNS-SD). Calls back on the executor on which `start` was called,
/// and no more once `stop` has returned there.
class ServiceBrowser {
  public:
    /// Everything that is there now, after each change.
    using OnResults = std::function<void(std::vector<FoundService>)>;
    using OnState = std::function<void(BrowsingState)>;

    virtual ~ServiceBrowser() = default;

    /// `type` is as in "_http._tcp".
    virtual void start(std::string_view type, OnState onState, OnResults onResults) = 0;
    virtual void stop() = 0;
    /// Connects to the service by plain TCP, closes at once and answers the numeric address that it went to,
    /// an IPv6 address with its zone where it has one. Fails with `DialError`, whose description is empty
    /// when the system gives none; may take as long as the network likes and ends with its task.
    virtual Task<std::string> locate(FoundService service) = 0;
};

}  // namespace vark
