#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace vark::app {

/// How something that was asked for went, for whoever has to act on it.
enum class Outcome : std::uint8_t {
    done,
    failed,
    /// It cannot be done as it was asked for.
    misuse,
    notConnected,
    decisionWaits,
};

inline constexpr std::array<std::string_view, 5> outcomeNames = {"done", "failed", "misuse", "notConnected",
                                                                 "decisionWaits"};

inline std::string_view nameOf(Outcome outcome) {
    return outcomeNames.at(static_cast<std::size_t>(outcome));
}

}  // namespace vark::app
