#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {

/// Who may open a share's link.
enum class ShareAudience : std::uint8_t { link, domain };

/// The audience's word on the wire.
std::string_view wireName(ShareAudience audience);
std::string label(ShareAudience audience, std::string_view client);

/// How long a share's link lives.
enum class ShareExpiry : std::uint8_t { day, week, month, quarter };
inline constexpr ShareExpiry allShareExpiries[] = {ShareExpiry::day, ShareExpiry::week, ShareExpiry::month,
                                                   ShareExpiry::quarter};

std::string_view wireName(ShareExpiry expiry);
std::string_view label(ShareExpiry expiry);

struct ShareRequest {
    /// Paths on the vark.
    std::vector<std::string> paths{};
    ShareAudience audience = ShareAudience::link;
    /// No value leaves it to the vark.
    std::optional<ShareExpiry> expiry{};
    /// A note to go with the link; empty means none.
    std::string message{};

    void encode(JSONWriter& json) const;
    bool operator==(const ShareRequest&) const = default;
};

/// A link that the vark has made.
struct VarkShare {
    std::string url{};
    /// When the link runs out, worded to follow "runs out".
    std::optional<std::string> expires{};
    std::optional<std::string> title{};
    std::optional<std::string> audience{};
    std::optional<std::string> expiresAt{};
    std::optional<std::int64_t> shareID{};

    static VarkShare fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;
    /// "Link copied. It runs out {expires}."
    std::string describe() const;
    /// The same for a title, with no full stop.
    std::string shortDescribe() const;
    bool operator==(const VarkShare&) const = default;
};

}  // namespace vark
