#pragma once

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <sys/socket.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkPlatform/Linux/Avahi/AvahiThread.h"

namespace vark {

/// Finds out at which address a service answers: asks for its addresses and connects to them in turn, IPv4
/// first, until one takes the connection. Lives on the thread of `poll`, and not longer than `client`.
class AvahiLocation {
  public:
    struct Service {
        AvahiIfIndex interface;
        AvahiProtocol protocol;
        std::string name;
        std::string type;
        std::string domain;
    };
    /// The address, or a `DialError`. May end the location.
    using OnEnd = std::function<void(Outcome<std::string>)>;

    AvahiLocation(const AvahiPoll* poll, OnEnd end) : poll_(poll), end_(std::move(end)) {}
    /// Calls nothing any more.
    ~AvahiLocation();
    AvahiLocation(const AvahiLocation&) = delete;
    AvahiLocation& operator=(const AvahiLocation&) = delete;

    void start(AvahiClient* client, const Service& service);

  private:
    /// An address of one kind: being looked up, then known, then tried.
    struct Candidate {
        std::unique_ptr<AvahiServiceResolver, AvahiFree<avahi_service_resolver_free>> lookUp;
        std::optional<sockaddr_storage> address;
    };

    void ask(Candidate& candidate, AvahiClient* client, const Service& service, AvahiProtocol family);
    void answered(Candidate& candidate, const std::optional<sockaddr_storage>& address);
    void waitForTheBetterOne();
    void connectToNext();
    bool connectTo(const sockaddr_storage& address);
    void connectEnded();
    void stopWatching();
    void fail(const std::string& description);
    void finish(Outcome<std::string> outcome);

    const AvahiPoll* const poll_;
    OnEnd end_;
    Candidate ipv4_;
    Candidate ipv6_;
    AvahiTimeout* patience_ = nullptr;
    AvahiWatch* watch_ = nullptr;
    sockaddr_storage connectingTo_{};
    Descriptor socket_;
    std::string lastFailure_;
};

}  // namespace vark
