#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vark::box {

/// Addresses of files that carry their own authority for a short while: who has a ticket needs no token. Each
/// has a signature under a key that lives as long as this object. Any thread.
class Tickets {
  public:
    static constexpr std::int64_t lifetimeSeconds = 300;

    Tickets();

    /// Times are in seconds since 1970.
    std::string issue(std::int64_t item, std::int64_t now) const;
    /// The item. Refuses with 403 what was not issued here, and what has run out.
    std::int64_t open(std::string_view ticket, std::int64_t now) const;

  private:
    std::string signatureOf(std::string_view claim) const;

    const std::string key_;
};

}  // namespace vark::box
