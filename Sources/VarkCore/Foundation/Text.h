#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vark {

/// The character at `place`, which moves past it; nothing for bytes that are no UTF-8.
std::optional<char32_t> nextCharacter(std::string_view text, std::size_t& place);
bool isUTF8(std::string_view text);
/// The text with every invalid byte sequence replaced by U+FFFD.
std::string repairedUTF8(std::string_view text);
/// Letters, the marks that belong to them, and numbers, as Unicode has them.
bool isAlphanumeric(char32_t character);
std::string lowercased(std::string_view text);
/// Without the blanks and line ends at both ends.
std::string_view trimmed(std::string_view text);

/// Split at every `separator`, empty pieces kept.
std::vector<std::string> splitKeepingEmpty(std::string_view text, char separator);
/// The pieces between the "/" of a path, empty ones left out.
std::vector<std::string> pathComponents(std::string_view path);
/// The text without the blanks and tabs, of whatever script, at its ends.
std::string_view withoutBlanksAround(std::string_view text);
/// What stands behind the last "/", or the whole text.
std::string_view lastPathComponent(std::string_view path);
/// The pieces of a path in the vark with single slashes between them and none at the ends.
std::string tidiedVarkPath(std::string_view path);

/// "1,234": decimal with the thousands separators of the locale en_AU.
std::string decimalNumber(std::int64_t number);

/// The order in which a file browser lists names in the locale en_AU: by letter, ignoring case until all else
/// is equal, with runs of digits compared as numbers ("a2" before "a10"). Keys compare bytewise in that
/// order; build one for each text and sort by them. Texts that Unicode counts as the same have the same key.
/// Any thread; one object for one sort.
class NaturalOrder {
  public:
    NaturalOrder();
    ~NaturalOrder();
    NaturalOrder(const NaturalOrder&) = delete;
    NaturalOrder& operator=(const NaturalOrder&) = delete;

    std::string key(std::string_view text) const;

  private:
    void* collator_;
};

/// Shown to a person on a terminal: control characters, line ends, escape sequences, bidirectional overrides
/// and bytes that are not UTF-8 come out as backslash escapes (`\n`, `\x1b`, `\u202e`), all else as it is. A
/// byte from 0x80 to 0x9F that is no UTF-8 reads `\x9b`, the control character of that number `\u009b`.
std::string escapedForTerminal(std::string_view text);

}  // namespace vark
