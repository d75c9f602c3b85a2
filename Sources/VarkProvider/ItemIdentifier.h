#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <utility>

namespace vark {

/// How a system calls an item of the provider's, or one of the three places that are its own: the top, the
/// set of all items whose changes it wants to hear of, and its trash. A value.
class ItemIdentifier {
  public:
    enum class Kind : std::uint8_t { root, workingSet, trash, item };

    static ItemIdentifier root() { return ItemIdentifier(Kind::root, {}); }
    static ItemIdentifier workingSet() { return ItemIdentifier(Kind::workingSet, {}); }
    static ItemIdentifier trash() { return ItemIdentifier(Kind::trash, {}); }
    static ItemIdentifier item(std::string text) { return ItemIdentifier(Kind::item, std::move(text)); }

    Kind kind() const { return kind_; }
    /// Empty unless it is an item's.
    const std::string& text() const { return text_; }

    auto operator<=>(const ItemIdentifier&) const = default;

  private:
    ItemIdentifier(Kind kind, std::string text) : kind_(kind), text_(std::move(text)) {}

    Kind kind_;
    std::string text_;
};

}  // namespace vark
