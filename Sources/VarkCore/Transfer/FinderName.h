#pragma once

#include <string>
#include <string_view>

namespace vark {

/// Undoes the private spelling that the Finder gives to characters which are not allowed elsewhere. Pure
/// functions.
struct FinderName {
    static bool isSpelledPrivately(std::string_view name);
    static std::string onDisk(std::string_view name);
};

}  // namespace vark
