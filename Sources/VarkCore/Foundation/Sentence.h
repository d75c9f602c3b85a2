#pragma once

#include <string>
#include <string_view>

namespace vark {

/// The text with a full stop behind it, unless it ends like a sentence already: for words that came from
/// somewhere else and stand between our own.
std::string asSentence(std::string_view text);

}  // namespace vark
