#pragma once

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>

#include <compare>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Services/ServiceBrowser.h"
#include "VarkPlatform/Linux/Avahi/AvahiLocation.h"
#include "VarkPlatform/Linux/Avahi/AvahiThread.h"

namespace vark {

/// One client of the avahi-daemon, with all that hangs on it: what is announced now, and the services that
/// are being located. Lives on the thread of `poll`, from the first try to reach the daemon until the daemon
/// has gone; waits for one that is not there yet.
class AvahiSession {
  public:
    /// Told on the thread; the session must not be ended inside a call.
    class Listener {
      public:
        virtual void browsing() = 0;
        virtual void found(std::vector<FoundService> services) = 0;
        /// The daemon has gone, and only another session can reach the next one.
        virtual void lost() = 0;
        virtual void denied() = 0;
        /// The session is of no more use.
        virtual void failed() = 0;

      protected:
        ~Listener() = default;
    };

    AvahiSession(const AvahiPoll* poll, std::string type, Listener& listener);
    /// Services that are being located fail.
    ~AvahiSession();
    AvahiSession(const AvahiSession&) = delete;
    AvahiSession& operator=(const AvahiSession&) = delete;

    /// Services that are being located are located still.
    void stopLooking();
    /// `end` is called once, for a service that is not there before this returns.
    void locate(std::uint64_t number, const std::string& name, AvahiLocation::OnEnd end);
    /// The location ends as a cancelled one, if it has not ended.
    void abandon(std::uint64_t number);

  private:
    /// Where a service was seen. In this order the first place of a name is the best one.
    struct Place {
        std::string name;
        AvahiProtocol protocol;
        AvahiIfIndex interface;
        std::string domain;
        auto operator<=>(const Place&) const = default;
    };
    struct Sighting {
        AvahiSession* session;
        /// Follows the text for as long as the service is there.
        std::unique_ptr<AvahiRecordBrowser, AvahiFree<avahi_record_browser_free>> textBrowser;
        std::optional<std::string> text;
    };
    struct PendingLocation {
        AvahiLocation::OnEnd end;
        std::unique_ptr<AvahiLocation> location;
    };

    void clientChanged(AvahiClient* client, AvahiClientState state);
    void fail(int error);
    void browse(AvahiClient* client);
    void serviceChanged(AvahiBrowserEvent event, Place place);
    void add(const Place& place);
    void tell() const;
    void finish(std::uint64_t number, Outcome<std::string> outcome);

    const AvahiPoll* const poll_;
    const std::string type_;
    Listener& listener_;
    // The client goes last: it takes what others hold with it.
    std::unique_ptr<AvahiClient, AvahiFree<avahi_client_free>> client_;
    std::unique_ptr<AvahiServiceBrowser, AvahiFree<avahi_service_browser_free>> browser_;
    bool isLooking_ = true;
    std::map<Place, Sighting> sightings_;
    std::map<std::uint64_t, PendingLocation> locations_;
};

}  // namespace vark
