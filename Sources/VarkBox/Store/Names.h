#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vark::box {

/// A path of the vark in its components, none for the root "". A name is data and is kept byte for byte, but
/// a component that could mean something to a file system (empty, ".", "..", a NUL), one above 255 bytes, or
/// bytes that are not UTF-8 are refused with 400.
std::vector<std::string> pathComponents(std::string_view path);

/// The same rules for one name, in which no "/" may stand.
void checkName(std::string_view name);

/// The name of a host in lower case. Anything that could not stand in a URL or in a certificate as a name is
/// refused with 400.
std::string hostName(std::string_view text);

std::string joined(std::span<const std::string> components);

}  // namespace vark::box
