#include "VarkCore/Foundation/Text.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unicode/numberformatter.h>
#include <unicode/uchar.h>
#include <unicode/ucol.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <stdexcept>

namespace vark {
namespace {

/// Calls `visit(character, bytes)` for each character; there is no `character` for bytes that are no UTF-8.
template <class Visit>
void forEachCharacter(std::string_view text, Visit visit) {
    for (std::size_t start = 0; start < text.size();) {
        std::size_t next = start;
        const std::optional<char32_t> character = nextCharacter(text, next);
        visit(character, text.substr(start, next - start));
        start = next;
    }
}

std::size_t lengthOfASCIIPrefix(std::string_view text) {
    constexpr std::uint64_t highBits = 0x8080808080808080ULL;
    std::size_t place = 0;
    for (; place + 8 <= text.size(); place += 8) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, text.data() + place, 8);
        if ((eight & highBits) != 0) break;
    }
    while (place < text.size() && static_cast<unsigned char>(text[place]) < 0x80)
        ++place;
    return place;
}

/// Characters that move the cursor, colour or reorder what stands around them, or cannot be seen at all.
bool isDangerousOnTerminal(char32_t character) {
    return character < 0x20 || (character >= 0x7F && character <= 0x9F) || character == 0x061C ||
           character == 0x200E || character == 0x200F || (character >= 0x2028 && character <= 0x202E) ||
           (character >= 0x2066 && character <= 0x2069) || character == 0xFEFF;
}

void appendEscaped(std::string& to, char32_t character) {
    switch (character) {
        case '\n':
            to += "\\n";
            return;
        case '\r':
            to += "\\r";
            return;
        case '\t':
            to += "\\t";
            return;
        default:
            break;
    }
    if (character < 0x80) {
        fmt::format_to(std::back_inserter(to), "\\x{:02x}", static_cast<unsigned>(character));
        return;
    }
    fmt::format_to(std::back_inserter(to), "\\u{:04x}", static_cast<unsigned>(character));
}

}  // namespace

std::optional<char32_t> nextCharacter(std::string_view text, std::size_t& place) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    UChar32 character = 0;
    U8_NEXT(bytes, place, text.size(), character);  // NOLINT(bugprone-inc-dec-in-conditions): ICU's macro
    if (character < 0) return std::nullopt;
    return static_cast<char32_t>(character);
}

bool isUTF8(std::string_view text) {
    for (std::size_t place = lengthOfASCIIPrefix(text); place < text.size();) {
        if (!nextCharacter(text, place)) return false;
    }
    return true;
}

std::string repairedUTF8(std::string_view text) {
    if (isUTF8(text)) return std::string(text);
    std::string repaired;
    repaired.reserve(text.size() + 8);
    forEachCharacter(text, [&](std::optional<char32_t> character, std::string_view bytes) {
        repaired += character ? bytes : std::string_view("\xEF\xBF\xBD");
    });
    return repaired;
}

bool isAlphanumeric(char32_t character) {
    constexpr std::uint32_t wanted = U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK;
    return (U_GET_GC_MASK(static_cast<UChar32>(character)) & wanted) != 0;
}

std::string lowercased(std::string_view text) {
    std::string lower(text);
    if (lengthOfASCIIPrefix(text) == text.size()) {
        std::ranges::transform(lower, lower.begin(), [](char character) {
            return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                        : character;
        });
        return lower;
    }
    lower.clear();
    return icu::UnicodeString::fromUTF8(text).toLower(icu::Locale("en", "AU")).toUTF8String(lower);
}

std::string_view trimmed(std::string_view text) {
    const char* first = nullptr;
    const char* last = nullptr;
    forEachCharacter(text, [&](std::optional<char32_t> character, std::string_view bytes) {
        if (character && u_isUWhiteSpace(static_cast<UChar32>(*character))) return;
        if (first == nullptr) first = bytes.data();
        last = bytes.data() + bytes.size();
    });
    return {first, last};
}

std::vector<std::string> splitKeepingEmpty(std::string_view text, char separator) {
    std::vector<std::string> pieces;
    for (;;) {
        const std::size_t end = text.find(separator);
        pieces.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) return pieces;
        text.remove_prefix(end + 1);
    }
}

std::vector<std::string> pathComponents(std::string_view path) {
    std::vector<std::string> components = splitKeepingEmpty(path, '/');
    std::erase(components, "");
    return components;
}

std::string_view withoutBlanksAround(std::string_view text) {
    std::size_t first = text.size();
    std::size_t end = 0;
    std::size_t place = 0;
    forEachCharacter(text, [&](std::optional<char32_t> character, std::string_view bytes) {
        if (!character || u_isblank(static_cast<UChar32>(*character)) == 0) {
            first = std::min(first, place);
            end = place + bytes.size();
        }
        place += bytes.size();
    });
    return end == 0 ? std::string_view() : text.substr(first, end - first);
}

std::string tidiedVarkPath(std::string_view path) {
    return fmt::format("{}", fmt::join(pathComponents(path), "/"));
}

std::string_view lastPathComponent(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string decimalNumber(std::int64_t number) {
    static const icu::number::LocalizedNumberFormatter formatter =
        icu::number::NumberFormatter::withLocale(icu::Locale("en", "AU"));
    UErrorCode status = U_ZERO_ERROR;
    std::string text;
    formatter.formatInt(number, status).toString(status).toUTF8String(text);
    if (U_FAILURE(status)) throw std::runtime_error(std::string("No number format: ") + u_errorName(status));
    return text;
}

NaturalOrder::NaturalOrder() {
    UErrorCode status = U_ZERO_ERROR;
    UCollator* collator = ucol_open("en_AU", &status);
    ucol_setAttribute(collator, UCOL_NUMERIC_COLLATION, UCOL_ON, &status);
    if (U_FAILURE(status)) {
        ucol_close(collator);
        throw std::runtime_error(std::string("No order for names: ") + u_errorName(status));
    }
    collator_ = collator;
}

NaturalOrder::~NaturalOrder() {
    ucol_close(static_cast<UCollator*>(collator_));
}

std::string NaturalOrder::key(std::string_view text) const {
    const icu::UnicodeString wide = icu::UnicodeString::fromUTF8(text);
    const auto* collator = static_cast<const UCollator*>(collator_);
    std::string key;
    std::size_t capacity = text.size() * 2 + 32;
    for (;;) {
        std::int32_t needed = 0;
        key.resize_and_overwrite(capacity, [&](char* buffer, std::size_t size) {
            needed =
                ucol_getSortKey(collator, wide.getBuffer(), wide.length(),
                                reinterpret_cast<std::uint8_t*>(buffer), static_cast<std::int32_t>(size));
            return std::min(size, static_cast<std::size_t>(needed));
        });
        if (static_cast<std::size_t>(needed) <= capacity) return key;
        capacity = static_cast<std::size_t>(needed);
    }
}

std::string escapedForTerminal(std::string_view text) {
    std::string shown;
    shown.reserve(text.size());
    forEachCharacter(text, [&](std::optional<char32_t> character, std::string_view bytes) {
        if (!character) {
            for (const char byte : bytes) {
                fmt::format_to(std::back_inserter(shown), "\\x{:02x}", static_cast<unsigned char>(byte));
            }
            return;
        }
        if (isDangerousOnTerminal(*character)) {
            appendEscaped(shown, *character);
            return;
        }
        shown += bytes;
    });
    return shown;
}

}  // namespace vark
