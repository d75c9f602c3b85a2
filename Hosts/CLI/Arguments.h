#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "VarkCore/Foundation/URL.h"
#include "VarkCore/Transfer/OfficeHours.h"

namespace vark::cli {

/// "10MB", "500 KB/s", "1.5MB/s": bytes a second, in decimal units. Nothing for other text and for less than
/// one byte.
std::optional<std::int64_t> parseRate(std::string_view text);

/// "09:00-17:30" as the hours of the working day in which nothing is sent. Nothing for other text, and for a
/// day that does not begin before it ends.
std::optional<OfficeHours> parseOfficeHours(std::string_view text);

/// Whether a token or a person's answer may go to the address: all of https, and this machine itself.
bool isSafeAddress(const URL& url);
/// Whether the text can be a device token: not empty, plain characters without blanks.
bool isToken(std::string_view text);

/// `below` under `root`; either may be empty.
std::string joinedVarkPath(std::string_view root, std::string_view below);

}  // namespace vark::cli
