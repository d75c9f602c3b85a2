#include "VarkCore/Transfer/PathFilter.h"

#include <algorithm>
#include <optional>

#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

constexpr auto nowhere = std::string_view::npos;

/// The next character of the text, or its next byte where that is no UTF-8.
char32_t takeCharacter(std::string_view text, std::size_t& place) {
    std::size_t next = place;
    if (const std::optional<char32_t> character = nextCharacter(text, next)) {
        place = next;
        return *character;
    }
    return static_cast<unsigned char>(text[place++]);
}

/// A "[...]" at `place`, behind which `place` then is. Nothing when it has no end, and then "[" is itself.
std::optional<bool> isOneOf(std::string_view pattern, std::size_t& place, char32_t character) {
    std::size_t at = place + 1;
    const bool isNot = at < pattern.size() && (pattern[at] == '!' || pattern[at] == '^');
    if (isNot) ++at;
    bool found = false;
    for (const std::size_t first = at; at < pattern.size() && (pattern[at] != ']' || at == first);) {
        if (pattern[at] == '\\' && at + 1 < pattern.size()) ++at;
        const char32_t low = takeCharacter(pattern, at);
        char32_t high = low;
        if (at + 1 < pattern.size() && pattern[at] == '-' && pattern[at + 1] != ']') {
            ++at;
            high = takeCharacter(pattern, at);
        }
        found = found || (low <= character && character <= high);
    }
    if (at >= pattern.size()) return std::nullopt;
    place = at + 1;
    return found != isNot && character != '/';
}

/// Takes one character of the pattern, which is no star, and one of the text, when they go together.
bool takeOne(std::string_view pattern, std::size_t& at, std::string_view text, std::size_t& place) {
    std::size_t inText = place;
    const char32_t character = takeCharacter(text, inText);
    std::size_t inPattern = at;
    bool goes = false;
    if (pattern[at] == '?') {
        goes = character != '/';
        ++inPattern;
    } else if (const std::optional<bool> one =
                   pattern[at] == '[' ? isOneOf(pattern, inPattern, character) : std::nullopt) {
        goes = *one;
    } else {
        if (pattern[at] == '\\' && at + 1 < pattern.size()) ++inPattern;
        goes = takeCharacter(pattern, inPattern) == character;
    }
    if (!goes) return false;
    at = inPattern;
    place = inText;
    return true;
}

/// A star that was passed: where the pattern goes on behind it, and up to where in the text it reaches so
/// far.
struct Star {
    std::size_t pattern = nowhere;
    std::size_t text = 0;
    /// It stands for whole names: "**/".
    bool takesNames = false;

    bool reachesFurther(std::string_view whole) {
        if (pattern == nowhere || text >= whole.size()) return false;
        if (!takesNames) {
            takeCharacter(whole, text);
            return true;
        }
        const std::size_t end = whole.find('/', text);
        text = end == nowhere ? whole.size() : end + 1;
        return end != nowhere;
    }
};

struct Pattern {
    std::string_view text;
    bool isForFolders = false;
    bool isForPaths = false;

    explicit Pattern(std::string_view given) : text(given) {
        isForFolders = text.ends_with('/');
        while (text.ends_with('/'))
            text.remove_suffix(1);
        isForPaths = text.contains('/');
        while (text.starts_with('/'))
            text.remove_prefix(1);
    }

    bool isAbout(std::string_view path, bool isFolder) const {
        if (isForFolders && !isFolder) return false;
        return PathFilter::matches(text, isForPaths ? path : lastPathComponent(path));
    }
    bool isAboutOneAround(std::string_view path) const {
        for (std::size_t end = path.find('/'); end != nowhere; end = path.find('/', end + 1))
            if (isAbout(path.substr(0, end), true)) return true;
        return false;
    }
};

}  // namespace

bool PathFilter::matches(std::string_view pattern, std::string_view text) {
    // What does not fit lets the last star reach further, and where a "/" stops that one, the last double
    // star.
    Star star;
    Star doubleStar;
    std::size_t at = 0;
    std::size_t place = 0;
    while (place < text.size() || at < pattern.size()) {
        if (pattern.substr(at).starts_with("**")) {
            const bool beginsName = at == 0 || pattern[at - 1] == '/';
            while (at < pattern.size() && pattern[at] == '*')
                ++at;
            const bool takesNames = beginsName && at < pattern.size() && pattern[at] == '/';
            if (takesNames) ++at;
            doubleStar = {at, place, takesNames};
            star = {};
            continue;
        }
        if (at < pattern.size() && pattern[at] == '*') {
            star = {++at, place};
            continue;
        }
        if (at < pattern.size() && place < text.size() && takeOne(pattern, at, text, place)) continue;
        const bool isStopped = star.text < text.size() && text[star.text] == '/';
        Star* last = !isStopped && star.reachesFurther(text) ? &star : nullptr;
        if (last == nullptr && doubleStar.reachesFurther(text)) {
            star = {};
            last = &doubleStar;
        }
        if (last == nullptr) return false;
        at = last->pattern;
        place = last->text;
    }
    return true;
}

bool PathFilter::leavesOutFolder(std::string_view path) const {
    return std::ranges::any_of(exclude,
                               [&](const std::string& one) { return Pattern(one).isAbout(path, true); });
}

bool PathFilter::leavesOutFile(std::string_view path) const {
    const auto isAbout = [&](const std::string& one) { return Pattern(one).isAbout(path, false); };
    if (std::ranges::any_of(exclude, isAbout)) return true;
    if (include.empty()) return false;
    return std::ranges::none_of(
        include, [&](const std::string& one) { return isAbout(one) || Pattern(one).isAboutOneAround(path); });
}

}  // namespace vark
