#pragma once

#include <optional>
#include <string_view>

namespace vark {

/// Why a name cannot simply be a file's name on this machine.
enum class NameFault {
    /// Empty, "." or "..", or holding a "/" or a NUL: it names no one thing in a folder.
    leadsElsewhere,
    /// More than the 255 bytes that disks here take.
    tooLong,
    /// It could be a file's name, but holds control characters that no honest one needs, ESC among them: only
    /// for a person who has typed it. Tab, line feed and DEL are not among them, nor is right-to-left text:
    /// people's files have such names, and they are escaped wherever they are shown.
    holdsControls,
};

/// The one check of every name from outside before it becomes part of a path. A name without a fault is one
/// component: what is made under it in a folder lies in that folder.
std::optional<NameFault> faultOf(std::string_view name);

}  // namespace vark
