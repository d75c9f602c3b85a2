#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Hosts/CLI/Names.h"
#include "VarkApp/WorkingHours.h"

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

}  // namespace vark::cli
