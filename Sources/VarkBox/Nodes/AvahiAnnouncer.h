#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vark::box {

/// Announces this machine as a node of a vark on the local network (DNS-SD), for as long as it lives and from
/// a thread of its own. When the daemon that does the announcing is not there, or goes, it waits for it and
/// announces again. Its end says goodbye to the network. Any thread may call.
class AvahiAnnouncer {
  public:
    struct Announcement {
        /// When another has taken the name, the announcement stands under one with a number behind it.
        std::string name;
        std::uint16_t port;
        /// Keys and values as they are announced, in this order.
        std::vector<std::pair<std::string, std::string>> text;
    };

    explicit AvahiAnnouncer(Announcement announcement);
    ~AvahiAnnouncer();
    AvahiAnnouncer(const AvahiAnnouncer&) = delete;
    AvahiAnnouncer& operator=(const AvahiAnnouncer&) = delete;

    /// Why the announcement does not stand, as a sentence; nothing while it does.
    std::optional<std::string> trouble() const;

  private:
    class Machinery;
    const std::unique_ptr<Machinery> machinery_;
};

}  // namespace vark::box
