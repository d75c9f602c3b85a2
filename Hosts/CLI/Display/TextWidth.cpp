#include "Hosts/CLI/Display/TextWidth.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>

namespace vark::cli {

namespace {

int widthOf(UChar32 character) {
    if (character < 0) return 1;
    const auto category = static_cast<UCharCategory>(u_charType(character));
    if (category == U_NON_SPACING_MARK || category == U_ENCLOSING_MARK || category == U_FORMAT_CHAR) return 0;
    const auto width = static_cast<UEastAsianWidth>(u_getIntPropertyValue(character, UCHAR_EAST_ASIAN_WIDTH));
    return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

/// The columns of the character at `place`, which moves behind it.
int takeWidth(std::string_view text, std::size_t& place) {
    auto next = static_cast<std::int32_t>(place);
    UChar32 character = 0;
    U8_NEXT(text.data(), next, static_cast<std::int32_t>(text.size()), character);
    place = static_cast<std::size_t>(next);
    return widthOf(character);
}

/// Where the first character that does not fit into `columns` begins; takes the columns used out of
/// `columns`.
std::size_t fitting(std::string_view text, int& columns) {
    std::size_t place = 0;
    while (place < text.size()) {
        std::size_t next = place;
        const int width = takeWidth(text, next);
        if (width > columns) break;
        columns -= width;
        place = next;
    }
    return place;
}

}  // namespace

int displayWidth(std::string_view text) {
    int columns = INT32_MAX;
    fitting(text, columns);
    return INT32_MAX - columns;
}

std::string clippedToWidth(std::string_view text, int columns) {
    if (columns <= 0) return {};
    int left = columns;
    if (fitting(text, left) == text.size()) return std::string(text);
    left = columns - 1;
    return std::string(text.substr(0, fitting(text, left))) + "…";
}

std::string clippedInTheMiddle(std::string_view text, int columns) {
    if (columns <= 0) return {};
    if (displayWidth(text) <= columns) return std::string(text);
    const int columnsInFront = (columns - 1) / 2;
    const int columnsBehind = columns - 1 - columnsInFront;
    int left = columnsInFront;
    const std::string_view front = text.substr(0, fitting(text, left));
    std::size_t place = front.size();
    int rest = displayWidth(text.substr(place));
    while (place < text.size()) {
        std::size_t next = place;
        const int width = takeWidth(text, next);
        // A mark does not stand without its letter.
        if (rest <= columnsBehind && width > 0) break;
        rest -= width;
        place = next;
    }
    return std::string(front) + "…" + std::string(text.substr(place));
}

std::string paddedToWidth(std::string_view text, int columns) {
    std::string padded(text);
    padded.append(static_cast<std::size_t>(std::max(0, columns - displayWidth(padded))), ' ');
    return padded;
}

}  // namespace vark::cli
