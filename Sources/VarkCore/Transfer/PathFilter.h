#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vark {

/// What of a folder a person wants, by patterns over the paths in it. A value.
///
/// In a pattern "*" stands for anything but "/", "**" for anything, "?" for one character, "[a-z]" and
/// "[!a-z]" for one of some; "\" takes the meaning from what follows. One without a "/" is about names,
/// wherever they are; any other about the whole path below the folder. With "/" at its end it is about
/// folders alone, and with what is in them.
struct PathFilter {
    /// Not wanted, whatever `include` says.
    std::vector<std::string> exclude{};
    /// Where there are any, a file is wanted when one of them is about it, or about a folder that it is in.
    std::vector<std::string> include{};

    bool isEmpty() const { return exclude.empty() && include.empty(); }
    /// With all that is in it. Paths are "/" separated and begin below the folder that was named.
    bool leavesOutFolder(std::string_view path) const;
    /// Of a file in a folder that is not left out.
    bool leavesOutFile(std::string_view path) const;

    /// Whether the whole text is of the pattern.
    static bool matches(std::string_view pattern, std::string_view text);
    bool operator==(const PathFilter&) const = default;
};

}  // namespace vark
