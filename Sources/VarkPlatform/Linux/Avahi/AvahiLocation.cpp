#include "VarkPlatform/Linux/Avahi/AvahiLocation.h"

#include <avahi-common/timeval.h>
#include <netdb.h>
#include <netinet/in.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "VarkCore/Services/Dialer.h"

namespace vark {
namespace {

/// How long an address of the newer kind waits for one of the older, which usually comes in the same packet.
constexpr unsigned patienceInMilliseconds = 1000;
constexpr const char* noAddress = "the avahi-daemon does not find its address";

std::string systemMessage(int errorNumber) {
    return std::system_category().message(errorNumber);
}

sockaddr_storage socketAddress(const AvahiAddress& address, AvahiIfIndex interface, std::uint16_t port) {
    sockaddr_storage storage{};
    if (address.proto == AVAHI_PROTO_INET) {
        sockaddr_in ipv4{};
        ipv4.sin_family = AF_INET;
        ipv4.sin_port = htons(port);
        ipv4.sin_addr.s_addr = address.data.ipv4.address;
        std::memcpy(&storage, &ipv4, sizeof ipv4);
        return storage;
    }
    sockaddr_in6 ipv6{};
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_port = htons(port);
    std::memcpy(&ipv6.sin6_addr, address.data.ipv6.address, sizeof ipv6.sin6_addr);
    if (IN6_IS_ADDR_LINKLOCAL(&ipv6.sin6_addr)) ipv6.sin6_scope_id = static_cast<std::uint32_t>(interface);
    std::memcpy(&storage, &ipv6, sizeof ipv6);
    return storage;
}

socklen_t lengthOf(const sockaddr_storage& address) {
    return address.ss_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
}

std::string numericText(const sockaddr_storage& address) {
    std::array<char, NI_MAXHOST> text{};
    getnameinfo(reinterpret_cast<const sockaddr*>(&address), lengthOf(address), text.data(), text.size(),
                nullptr, 0, NI_NUMERICHOST);
    return text.data();
}

}  // namespace

AvahiLocation::~AvahiLocation() {
    stopWatching();
    if (patience_ != nullptr) poll_->timeout_free(patience_);
}

void AvahiLocation::start(AvahiClient* client, const Service& service) {
    ask(ipv6_, client, service, AVAHI_PROTO_INET6);
    ask(ipv4_, client, service, AVAHI_PROTO_INET);
    if (!ipv4_.lookUp && !ipv6_.lookUp) fail(noAddress);
}

void AvahiLocation::ask(Candidate& candidate, AvahiClient* client, const Service& service,
                        AvahiProtocol family) {
    candidate.lookUp.reset(avahi_service_resolver_new(
        client, service.interface, service.protocol, service.name.c_str(), service.type.c_str(),
        service.domain.c_str(), family, AVAHI_LOOKUP_NO_TXT,
        [](AvahiServiceResolver* resolver, AvahiIfIndex interface, AvahiProtocol, AvahiResolverEvent event,
           const char*, const char*, const char*, const char*, const AvahiAddress* address,
           std::uint16_t port, AvahiStringList*, AvahiLookupResultFlags, void* location) {
            auto& self = *static_cast<AvahiLocation*>(location);
            Candidate& asked = self.ipv4_.lookUp.get() == resolver ? self.ipv4_ : self.ipv6_;
            if (event == AVAHI_RESOLVER_FOUND) {
                self.answered(asked, socketAddress(*address, interface, port));
                return;
            }
            self.lastFailure_ = noAddress;
            self.answered(asked, std::nullopt);
        },
        this));
}

void AvahiLocation::answered(Candidate& candidate, const std::optional<sockaddr_storage>& address) {
    candidate.address = address;
    candidate.lookUp.reset();
    if (ipv4_.address || (!ipv4_.lookUp && !ipv6_.lookUp)) {
        connectToNext();
    } else if (ipv6_.address) {
        waitForTheBetterOne();
    }
}

void AvahiLocation::waitForTheBetterOne() {
    timeval when{};
    avahi_elapse_time(&when, patienceInMilliseconds, 0);
    patience_ = poll_->timeout_new(
        poll_, &when,
        [](AvahiTimeout*, void* location) { static_cast<AvahiLocation*>(location)->connectToNext(); }, this);
}

void AvahiLocation::connectToNext() {
    ipv4_.lookUp.reset();
    ipv6_.lookUp.reset();
    if (patience_ != nullptr) poll_->timeout_free(std::exchange(patience_, nullptr));
    for (Candidate* candidate : {&ipv4_, &ipv6_}) {
        const std::optional<sockaddr_storage> address = std::exchange(candidate->address, std::nullopt);
        if (address && connectTo(*address)) return;
    }
    fail(lastFailure_);
}

/// Answers whether the connection is under way.
bool AvahiLocation::connectTo(const sockaddr_storage& address) {
    connectingTo_ = address;
    socket_ = Descriptor(::socket(address.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), lengthOf(address)) != 0 &&
        errno != EINPROGRESS) {
        lastFailure_ = systemMessage(errno);
        return false;
    }
    watch_ = poll_->watch_new(
        poll_, socket_.get(), AVAHI_WATCH_OUT,
        [](AvahiWatch*, int, AvahiWatchEvent, void* location) {
            static_cast<AvahiLocation*>(location)->connectEnded();
        },
        this);
    return watch_ != nullptr;
}

void AvahiLocation::connectEnded() {
    int error = 0;
    socklen_t length = sizeof error;
    getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &length);
    stopWatching();
    if (error != 0) {
        lastFailure_ = systemMessage(error);
        connectToNext();
        return;
    }
    Outcome<std::string> outcome;
    outcome.setValue(numericText(connectingTo_));
    finish(std::move(outcome));
}

void AvahiLocation::stopWatching() {
    if (watch_ != nullptr) poll_->watch_free(std::exchange(watch_, nullptr));
    socket_.close();
}

void AvahiLocation::fail(const std::string& description) {
    Outcome<std::string> outcome;
    outcome.setFailure(std::make_exception_ptr(DialError(DialError::network, description)));
    finish(std::move(outcome));
}

void AvahiLocation::finish(Outcome<std::string> outcome) {
    // The call may end this object, and what is called must not go with it.
    const OnEnd end = std::move(end_);
    end(std::move(outcome));
}

}  // namespace vark
