#include "VarkCore/Foundation/UUID.h"

#include <sys/random.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace vark {
namespace {

constexpr std::size_t textLength = 36;

constexpr bool isDashPlace(std::size_t place) {
    return place == 8 || place == 13 || place == 18 || place == 23;
}

int hexDigit(char character) {
    if (character >= '0' && character <= '9') return character - '0';
    if (character >= 'a' && character <= 'f') return character - 'a' + 10;
    if (character >= 'A' && character <= 'F') return character - 'A' + 10;
    return -1;
}

}  // namespace

UUID UUID::random() {
    UUID id;
    // The kernel gives up to 256 bytes whole, so only an interruption before the generator is ready can fail
    // it.
    while (getrandom(id.bytes.data(), id.bytes.size(), 0) != static_cast<ssize_t>(id.bytes.size())) {
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "No random numbers");
    }
    id.bytes[6] = static_cast<std::uint8_t>((id.bytes[6] & 0x0F) | 0x40);
    id.bytes[8] = static_cast<std::uint8_t>((id.bytes[8] & 0x3F) | 0x80);
    return id;
}

std::optional<UUID> UUID::parse(std::string_view text) {
    if (text.size() != textLength) return std::nullopt;
    UUID id;
    std::size_t byte = 0;
    for (std::size_t place = 0; place < textLength;) {
        if (isDashPlace(place)) {
            if (text[place] != '-') return std::nullopt;
            ++place;
            continue;
        }
        const int high = hexDigit(text[place]);
        const int low = hexDigit(text[place + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        id.bytes[byte++] = static_cast<std::uint8_t>(high * 16 + low);
        place += 2;
    }
    return id;
}

void UUID::write(char* to) const {
    constexpr const char* digits = "0123456789ABCDEF";
    std::size_t place = 0;
    for (const std::uint8_t byte : bytes) {
        if (isDashPlace(place)) to[place++] = '-';
        to[place++] = digits[byte >> 4];
        to[place++] = digits[byte & 15];
    }
}

std::string UUID::text() const {
    std::string text(textLength, '\0');
    write(text.data());
    return text;
}

}  // namespace vark

std::size_t std::hash<vark::UUID>::operator()(const vark::UUID& id) const noexcept {
    std::uint64_t halves[2];
    std::memcpy(halves, id.bytes.data(), sizeof halves);
    // Most are random already; the multiplication spreads those that were counted up by hand.
    return static_cast<std::size_t>((halves[0] ^ halves[1]) * 0x9E3779B97F4A7C15ULL);
}
