#pragma once

#include <string_view>

namespace vark::cli {

/// The signs of this program's own lines that not everything can show. Names are never changed by them.
struct Signs {
    std::string_view between = " · ";
    std::string_view to = " → ";
    // Of a tree.
    std::string_view branch = "├── ";
    std::string_view lastBranch = "└── ";
    std::string_view passingBranch = "│   ";
    std::string_view noBranch = "    ";

    static constexpr Signs ascii() { return {" - ", " -> ", "|-- ", "`-- ", "|   ", "    "}; }
};

}  // namespace vark::cli
