#include "VarkCore/Foundation/FileName.h"

#include <climits>

#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

constexpr char32_t firstC1 = 0x80;
constexpr char32_t lastC1 = 0x9F;

bool isControl(char32_t character) {
    if (character == U'\t' || character == U'\n') return false;
    return character < U' ' || (character >= firstC1 && character <= lastC1);
}

bool holdsControls(std::string_view name) {
    for (std::size_t place = 0; place < name.size();) {
        const std::optional<char32_t> character = nextCharacter(name, place);
        // Bytes that are no text may be controls to a terminal that does not expect UTF-8.
        if (!character || isControl(*character)) return true;
    }
    return false;
}

}  // namespace

std::optional<NameFault> faultOf(std::string_view name) {
    using namespace std::string_view_literals;
    if (name.empty() || name == "." || name == ".." || name.find_first_of("/\0"sv) != std::string_view::npos)
        return NameFault::leadsElsewhere;
    if (name.size() > NAME_MAX) return NameFault::tooLong;
    if (holdsControls(name)) return NameFault::holdsControls;
    return std::nullopt;
}

}  // namespace vark
