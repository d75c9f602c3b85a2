#include "VarkCore/Upload/ContentHash.h"

namespace vark {
namespace {

constexpr std::string_view digits = "0123456789abcdef";
constexpr std::uint8_t noDigit = 0xFF;

constexpr std::array<std::uint8_t, 256> makeValues() {
    std::array<std::uint8_t, 256> values{};
    values.fill(noDigit);
    for (std::size_t digit = 0; digit < digits.size(); ++digit) {
        values[static_cast<unsigned char>(digits[digit])] = static_cast<std::uint8_t>(digit);
    }
    return values;
}
constexpr std::array<std::uint8_t, 256> valueOfDigit = makeValues();

}  // namespace

std::optional<ContentHash> ContentHash::parse(std::string_view text) {
    if (text.size() != textLength) return std::nullopt;
    ContentHash hash;
    for (std::size_t byte = 0; byte < hash.bytes_.size(); ++byte) {
        const unsigned high = valueOfDigit[static_cast<unsigned char>(text[2 * byte])];
        const unsigned low = valueOfDigit[static_cast<unsigned char>(text[2 * byte + 1])];
        if (high == noDigit || low == noDigit) return std::nullopt;
        hash.bytes_[byte] = static_cast<std::uint8_t>(high * 16 + low);
    }
    return hash;
}

void ContentHash::write(char* to) const {
    for (const std::uint8_t byte : bytes_) {
        *to++ = digits[byte >> 4];
        *to++ = digits[byte & 15];
    }
}

std::string ContentHash::text() const {
    std::string text(textLength, '\0');
    write(text.data());
    return text;
}

}  // namespace vark
