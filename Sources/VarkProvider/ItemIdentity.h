#pragma once

#include <cstdint>
#include <optional>

#include "VarkProvider/ItemIdentifier.h"

namespace vark {

/// Turns the vark's numbers into identifiers and back, for the folder of the vark that this machine shows as
/// the top. An identifier says nothing of a path, so that moving and renaming leave it as it is. A value.
struct ItemIdentity {
    /// The number of the folder that is shown as the top.
    std::int64_t rootID = 0;

    ItemIdentifier identifier(std::int64_t id) const;
    /// The working set stands for the top; the trash, and a text that is no number, for nothing.
    std::optional<std::int64_t> varkID(const ItemIdentifier& identifier) const;
    /// The working set is not the root.
    bool isRoot(const ItemIdentifier& identifier) const;

    bool operator==(const ItemIdentity&) const = default;
};

}  // namespace vark
