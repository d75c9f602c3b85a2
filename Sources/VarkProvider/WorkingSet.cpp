#include "VarkProvider/WorkingSet.h"

#include <fmt/format.h>

#include <algorithm>

namespace vark {
namespace {

/// From so many items on, no more than that part of them may go in one pass: beyond it the vark has more
/// likely lost its way than its people have emptied it.
constexpr std::size_t fewestToDoubt = 5;
constexpr double mostGone = 0.2;

}  // namespace

WorkingSet::Reconciled WorkingSet::reconcile(const std::vector<Item>& items,
                                             const std::map<std::int64_t, std::string>& holding) {
    for (const Item& item : items) {
        if (const auto* doubt = std::get_if<Said::CouldNotSay>(&item.said.which())) {
            return TryAgain{
                fmt::format("the vark could not say what it has ({}); nothing was changed", doubt->reason)};
        }
    }
    Changes changes;
    for (const Item& item : items) {
        if (const auto* here = std::get_if<Said::Here>(&item.said.which())) {
            const auto held = holding.find(item.id);
            if (held != holding.end() && held->second != here->item.name)
                changes.renamed.push_back(here->item);
        } else if (!item.unsent) {
            changes.gone.push_back(item.id);
        }
    }
    const bool isTooMuch = items.size() >= fewestToDoubt &&
                           static_cast<double>(items.size()) * mostGone < double(changes.gone.size());
    if (isTooMuch) {
        return TryAgain{
            fmt::format("the vark called {} of {} things gone in one pass, which is more than it "
                        "should be; nothing was deleted",
                        changes.gone.size(), items.size())};
    }
    return changes;
}

bool WorkingSet::unsent(std::string_view path, const SyncSummary& summary) {
    const auto isIn = [path](const std::vector<SyncOp>& ops) {
        return std::ranges::any_of(ops, [path](const SyncOp& op) { return op.path == path; });
    };
    return isIn(summary.sending) || isIn(summary.waiting) || isIn(summary.problems);
}

}  // namespace vark
