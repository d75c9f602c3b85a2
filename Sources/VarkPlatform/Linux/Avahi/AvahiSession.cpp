#include "VarkPlatform/Linux/Avahi/AvahiSession.h"

#include <avahi-common/domain.h>
#include <avahi-common/error.h>
#include <net/if.h>

#include <array>
#include <cstring>
#include <utility>

#include "VarkCore/Services/Dialer.h"
#include "VarkPlatform/Linux/Avahi/AvahiPermission.h"

namespace vark {
namespace {

constexpr std::uint16_t classInternet = 1;
constexpr std::uint16_t typeText = 16;

/// The strings of a TXT record, each with its length before it. What has no key says nothing, and the first
/// of a key counts.
std::map<std::string, std::string> pairsIn(std::string_view record) {
    std::map<std::string, std::string> pairs;
    while (!record.empty()) {
        const std::size_t length = static_cast<unsigned char>(record.front());
        const std::string_view text = record.substr(1, length);
        record.remove_prefix(1 + text.size());
        const std::size_t equals = text.find('=');
        const std::string_view key = text.substr(0, equals);
        if (key.empty()) continue;
        pairs.emplace(key, equals == std::string_view::npos ? std::string_view() : text.substr(equals + 1));
    }
    return pairs;
}

std::string nameOf(AvahiIfIndex interface) {
    std::array<char, IF_NAMESIZE> name{};
    if (if_indextoname(static_cast<unsigned>(interface), name.data()) != nullptr) return name.data();
    return std::to_string(interface);
}

Outcome<std::string> failed(const std::string& description) {
    Outcome<std::string> outcome;
    outcome.setFailure(std::make_exception_ptr(DialError(DialError::network, description)));
    return outcome;
}

}  // namespace

AvahiSession::AvahiSession(const AvahiPoll* poll, std::string type, Listener& listener)
    : poll_(poll), type_(std::move(type)), listener_(listener) {
    int error = 0;
    client_.reset(avahi_client_new(
        poll_, AVAHI_CLIENT_NO_FAIL,
        [](AvahiClient* client, AvahiClientState state, void* self) {
            static_cast<AvahiSession*>(self)->clientChanged(client, state);
        },
        this, &error));
    if (!client_) fail(error);
}

AvahiSession::~AvahiSession() {
    while (!locations_.empty())
        finish(locations_.begin()->first, failed("the avahi-daemon has gone"));
}

void AvahiSession::clientChanged(AvahiClient* client, AvahiClientState state) {
    switch (state) {
        case AVAHI_CLIENT_S_RUNNING:
        case AVAHI_CLIENT_S_REGISTERING:
        case AVAHI_CLIENT_S_COLLISION:
            // The machine's own name does not matter to whoever only looks.
            if (isLooking_ && !browser_) browse(client);
            return;
        case AVAHI_CLIENT_CONNECTING:
            if (isAvahiForbidden()) listener_.denied();
            return;
        case AVAHI_CLIENT_FAILURE:
            if (avahi_client_errno(client) == AVAHI_ERR_DISCONNECTED) {
                listener_.lost();
            } else {
                fail(avahi_client_errno(client));
            }
            return;
    }
}

void AvahiSession::fail(int error) {
    if (error == AVAHI_ERR_ACCESS_DENIED || isAvahiForbidden()) {
        listener_.denied();
    } else {
        listener_.failed();
    }
}

void AvahiSession::browse(AvahiClient* client) {
    browser_.reset(avahi_service_browser_new(
        client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, type_.c_str(), nullptr, AvahiLookupFlags{},
        [](AvahiServiceBrowser*, AvahiIfIndex interface, AvahiProtocol protocol, AvahiBrowserEvent event,
           const char* name, const char*, const char* domain, AvahiLookupResultFlags, void* session) {
            auto& self = *static_cast<AvahiSession*>(session);
            if (event == AVAHI_BROWSER_NEW || event == AVAHI_BROWSER_REMOVE) {
                self.serviceChanged(event, {name, protocol, interface, domain});
            } else if (event == AVAHI_BROWSER_FAILURE) {
                self.fail(avahi_client_errno(self.client_.get()));
            }
        },
        this));
    if (browser_) {
        listener_.browsing();
    } else {
        fail(avahi_client_errno(client));
    }
}

void AvahiSession::serviceChanged(AvahiBrowserEvent event, Place place) {
    if (event == AVAHI_BROWSER_NEW) {
        add(place);
        return;
    }
    sightings_.erase(place);
    tell();
}

void AvahiSession::add(const Place& place) {
    std::array<char, AVAHI_DOMAIN_NAME_MAX> fullName{};
    if (avahi_service_name_join(fullName.data(), fullName.size(), place.name.c_str(), type_.c_str(),
                                place.domain.c_str()) < 0)
        return;
    Sighting& sighting = sightings_[place];
    sighting.session = this;
    sighting.textBrowser.reset(avahi_record_browser_new(
        client_.get(), place.interface, place.protocol, fullName.data(), classInternet, typeText,
        AvahiLookupFlags{},
        [](AvahiRecordBrowser*, AvahiIfIndex, AvahiProtocol, AvahiBrowserEvent event, const char*,
           std::uint16_t, std::uint16_t, const void* bytes, std::size_t size, AvahiLookupResultFlags,
           void* seen) {
            auto& self = *static_cast<Sighting*>(seen);
            // A text that has been replaced leaves later than the new one comes.
            if (event != AVAHI_BROWSER_NEW) return;
            self.text = std::string(static_cast<const char*>(bytes), size);
            self.session->tell();
        },
        &sighting));
}

void AvahiSession::tell() const {
    std::vector<FoundService> services;
    for (const auto& [place, sighting] : sightings_) {
        const bool known = !services.empty() && services.back().name == place.name;
        if (known || !sighting.text) continue;
        services.push_back({place.name, pairsIn(*sighting.text), nameOf(place.interface)});
    }
    listener_.found(std::move(services));
}

void AvahiSession::stopLooking() {
    isLooking_ = false;
    browser_.reset();
    sightings_.clear();
}

void AvahiSession::locate(std::uint64_t number, const std::string& name, AvahiLocation::OnEnd end) {
    const auto seen = sightings_.lower_bound(Place{name, AVAHI_PROTO_INET, 0, ""});
    if (seen == sightings_.end() || seen->first.name != name) {
        end(failed("the service is not announced any more"));
        return;
    }
    const Place& place = seen->first;
    const AvahiLocation::Service service{place.interface, place.protocol, name, type_, place.domain};
    PendingLocation& pending = locations_[number];
    pending.end = std::move(end);
    pending.location = std::make_unique<AvahiLocation>(
        poll_, [this, number](Outcome<std::string> outcome) { finish(number, std::move(outcome)); });
    pending.location->start(client_.get(), service);
}

void AvahiSession::abandon(std::uint64_t number) {
    Outcome<std::string> outcome;
    outcome.setFailure(std::make_exception_ptr(CancellationError()));
    finish(number, std::move(outcome));
}

void AvahiSession::finish(std::uint64_t number, Outcome<std::string> outcome) {
    const auto ended = locations_.extract(number);
    if (!ended.empty()) ended.mapped().end(std::move(outcome));
}

}  // namespace vark
