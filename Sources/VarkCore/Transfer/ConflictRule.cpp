#include "VarkCore/Transfer/ConflictRule.h"

#include <algorithm>

#include "VarkCore/Transfer/Queue/QueueModel.h"

namespace vark {
namespace {

/// Times that are as close may be the same one, told with fewer digits.
constexpr double sameMoment = 2;

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

}  // namespace vark
