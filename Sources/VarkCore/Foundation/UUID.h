#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vark {

/// A 128-bit identifier. A value; written as upper-case hexadecimal in groups of 8-4-4-4-12.
struct UUID {
    std::array<std::uint8_t, 16> bytes{};

    /// A random one (version 4), from the system's generator.
    static UUID random();
    /// Either case of letters. Nothing for other text.
    static std::optional<UUID> parse(std::string_view text);
    std::string text() const;
    /// Writes the 36 characters of `text` at `to`.
    void write(char* to) const;

    auto operator<=>(const UUID&) const = default;
};

}  // namespace vark

template <>
struct std::hash<vark::UUID> {
    std::size_t operator()(const vark::UUID& id) const noexcept;
};
