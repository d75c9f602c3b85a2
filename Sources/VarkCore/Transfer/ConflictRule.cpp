#include "VarkCore/Transfer/ConflictRule.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/Queue/QueueModel.h"

namespace vark {
namespace {

constexpr std::size_t longestEnding = 10;
/// A bracket with a larger number is part of the name.
constexpr int highestNumber = 99;
/// Times that are as close may be the same one, told with fewer digits.
constexpr double sameMoment = 2;

std::size_t charactersIn(std::string_view text) {
    std::size_t count = 0;
    for (std::size_t place = 0; place < text.size(); ++count) {
        if (!nextCharacter(text, place)) ++place;
    }
    return count;
}

/// Where the "." before the ending stands; the end of the name when it has none.
std::size_t endOfBase(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0) return name.size();
    const std::string_view ending = name.substr(dot + 1);
    const bool isEnding = !ending.empty() && charactersIn(ending) <= longestEnding && !ending.contains(' ');
    return isEnding ? dot : name.size();
}

/// The number in a " (7)" at the end, and where that begins.
std::optional<std::pair<int, std::size_t>> numberBehind(std::string_view base) {
    const std::size_t bracket = base.rfind(" (");
    if (bracket == std::string_view::npos || !base.ends_with(')')) return std::nullopt;
    const std::string_view digits = base.substr(bracket + 2, base.size() - bracket - 3);
    int number = 0;
    const auto [end, failure] = std::from_chars(digits.begin(), digits.end(), number);
    if (failure != std::errc() || end != digits.end() || number < 2 || number > highestNumber)
        return std::nullopt;
    return std::pair(number, bracket);
}

}  // namespace

std::optional<ConflictRule> conflictRuleNamed(std::string_view name) {
    const auto found = std::ranges::find(conflictRuleNames, name);
    if (found == conflictRuleNames.end()) return std::nullopt;
    return static_cast<ConflictRule>(found - conflictRuleNames.begin());
}

std::string_view nameOf(ConflictRule rule) {
    return conflictRuleNames.at(static_cast<std::size_t>(rule));
}

std::optional<ConflictRule> newerOf(const TransferItem& item) {
    if (!item.standing || !item.standing->mtime) return std::nullopt;
    return item.mtime > *item.standing->mtime + sameMoment ? ConflictRule::replace : ConflictRule::skip;
}

std::string nextFreeName(std::string_view name) {
    const std::size_t end = endOfBase(name);
    const std::string_view base = name.substr(0, end);
    const std::string_view ending = name.substr(end);
    if (const auto counted = numberBehind(base))
        return fmt::format("{} ({}){}", base.substr(0, counted->second), counted->first + 1, ending);
    return fmt::format("{} (2){}", base, ending);
}

}  // namespace vark
