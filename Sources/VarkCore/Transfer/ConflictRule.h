#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vark {

struct TransferItem;

/// What is to become of a file when another one stands at its place in the vark.
enum class ConflictRule : std::uint8_t {
    replace,
    /// The vark's stays.
    skip,
    /// The later one by its time stays or comes.
    newer,
    /// It goes beside the other, under the next free name.
    keepBoth
};

/// As they are written for people and in files.
inline constexpr std::array<std::string_view, 4> conflictRuleNames = {"replace", "skip", "newer",
                                                                      "keep-both"};
std::optional<ConflictRule> conflictRuleNamed(std::string_view name);
std::string_view nameOf(ConflictRule rule);

/// What `newer` comes to for a file: `replace` or `skip`, and nothing when the vark has not said from when
/// its own is.
std::optional<ConflictRule> newerOf(const TransferItem& item);

}  // namespace vark
