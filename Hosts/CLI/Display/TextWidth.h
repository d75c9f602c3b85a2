#pragma once

#include <string>
#include <string_view>

namespace vark::cli {

/// How many columns of a terminal the text takes: none for marks that join the letter before them, two for
/// wide characters.
int displayWidth(std::string_view text);
/// The text in at most so many columns; what is too long ends in "…".
std::string clippedToWidth(std::string_view text, int columns);
/// The same for names, which differ at their ends: what is too long has "…" in its middle.
std::string clippedInTheMiddle(std::string_view text, int columns);
/// Filled up with blanks to at least so many columns.
std::string paddedToWidth(std::string_view text, int columns);

}  // namespace vark::cli
