#pragma once

#include <string>
#include <string_view>

namespace vark {

/// The next free name. Pure functions.
struct Names {
    struct Split {
        std::string_view base;
        /// Without its dot; empty when there is none.
        std::string_view ext;
        bool operator==(const Split&) const = default;
    };

    /// "a (2).txt" for "a.txt", then "a (3).txt"; a number in brackets counts from 2 to 99.
    static std::string next(std::string_view name);
    /// Views into `name`. What follows the last dot is an extension when it has 1 to 10 characters and no
    /// blank; a dot at the very front begins none.
    static Split split(std::string_view name);
};

}  // namespace vark
