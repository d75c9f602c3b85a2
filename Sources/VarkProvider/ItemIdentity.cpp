#include "VarkProvider/ItemIdentity.h"

#include <charconv>
#include <string_view>

namespace vark {
namespace {

/// Reads "12", "+12" and "-12".
std::optional<std::int64_t> numberIn(std::string_view text) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) return std::nullopt;
    }
    std::int64_t number = 0;
    const std::from_chars_result result = std::from_chars(text.begin(), text.end(), number);
    if (result.ec != std::errc() || result.ptr != text.end()) return std::nullopt;
    return number;
}

}  // namespace

ItemIdentifier ItemIdentity::identifier(std::int64_t id) const {
    return id == rootID ? ItemIdentifier::root() : ItemIdentifier::item(std::to_string(id));
}

std::optional<std::int64_t> ItemIdentity::varkID(const ItemIdentifier& identifier) const {
    switch (identifier.kind()) {
        case ItemIdentifier::Kind::root:
        case ItemIdentifier::Kind::workingSet:
            return rootID;
        case ItemIdentifier::Kind::trash:
            return std::nullopt;
        case ItemIdentifier::Kind::item:
            return numberIn(identifier.text());
    }
}

bool ItemIdentity::isRoot(const ItemIdentifier& identifier) const {
    return identifier.kind() != ItemIdentifier::Kind::workingSet && varkID(identifier) == rootID;
}

}  // namespace vark
