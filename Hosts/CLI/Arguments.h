#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Hosts/CLI/WorkingHours.h"
#include "VarkCore/Foundation/URL.h"

namespace vark::cli {

/// What an argument means, or why it means nothing: a finished sentence that begins with the argument.
template <class T>
using Parsed = std::expected<T, std::string>;

/// Bytes a second, at least one: "10MB", "500 KB/s", "1.5M" in decimal units, "3MiB" in binary ones, "800" in
/// bytes. A rate in bits is refused and said to be one.
Parsed<std::int64_t> parseRate(std::string_view text);

/// "09:00-17:30" or, past midnight, "22:00-06:00": the hours in which nothing is sent.
Parsed<WorkingHours> parseWorkingHours(std::string_view text);

Parsed<std::int64_t> parseWholeNumber(std::string_view text, std::int64_t least, std::int64_t most);

/// The one of the words that was most likely meant by a mistyped one; nothing when none is near.
std::optional<std::string> nearestWord(std::string_view typed, const std::vector<std::string>& words);

/// Whether a token or a person's answer may go to the address: all of https, and this machine itself.
bool isSafeAddress(const URL& url);
/// Whether the text can be a device token: not empty, plain characters without blanks.
bool isToken(std::string_view text);

/// `below` under `root`; either may be empty.
std::string joinedVarkPath(std::string_view root, std::string_view below);

}  // namespace vark::cli
