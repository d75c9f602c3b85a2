#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vark {

/// The SHA-256 of a file. A value of 32 bytes, half of its text: a queue may hold a million of them.
class ContentHash {
  public:
    static constexpr std::size_t textLength = 64;

    /// Lower-case hexadecimal; nothing for other text.
    static std::optional<ContentHash> parse(std::string_view text);
    std::string text() const;
    /// Writes the 64 characters of `text` at `to`.
    void write(char* to) const;

    bool operator==(const ContentHash&) const = default;

  private:
    std::array<std::uint8_t, 32> bytes_{};
};

}  // namespace vark
