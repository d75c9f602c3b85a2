#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "VarkCore/Foundation/Names.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/TransferEngine.h"

// What becomes of files that stand against others in the vark, when a rule decides.

namespace vark {
namespace {

std::string withName(const std::string& path, std::string_view name) {
    return path.substr(0, path.rfind('/') + 1).append(name);
}

}  // namespace

bool TransferEngine::decide(const UUID& itemID, ConflictRule rule) {
    assertOnExecutor();
    // Another file of this queue may be on its way to the free name.
    return decide(itemID, rule, [this](const std::string& path) {
        return std::ranges::any_of(job_->items,
                                   [&](const TransferItem& item) { return item.relativePath == path; });
    });
}

bool TransferEngine::decide(const UUID& itemID, ConflictRule rule,
                            const std::function<bool(const std::string&)>& isTaken) {
    const TransferItem* found = item(itemID);
    if (found == nullptr || found->state != ItemState::conflict) return false;
    const std::optional<ConflictRule> meant =
        rule == ConflictRule::newer ? newerOf(*found) : std::optional(rule);
    if (!meant) return false;
    if (*meant == ConflictRule::keepBoth) {
        std::string path = found->relativePath;
        do {
            path = withName(path, Names::next(lastPathComponent(path)));
        } while (isTaken(path));
        putBeside(itemID, path);
    } else {
        resolveConflict(itemID, *meant == ConflictRule::replace);
    }
    return true;
}

void TransferEngine::putBeside(const UUID& itemID, const std::string& path) {
    std::string before;
    set(itemID, [&](TransferItem& item) {
        before = std::exchange(item.relativePath, path);
        item.state = ItemState::queued;
        item.uploadID.reset();
        item.doneChunks.clear();
        item.error.reset();
        item.standing.reset();
    });
    log_.write(fmt::format("Will put {} beside the vark's, as {}", before, path));
    recompute();
    scheduleSave();
    pump();
}

std::int64_t TransferEngine::decideAll(const std::optional<UUID>& entryID, ConflictRule rule) {
    assertOnExecutor();
    if (!job_) return 0;
    std::vector<UUID> waiting;
    for (const std::size_t place : conflicts_) {
        const TransferItem& item = job_->items[place];
        if (!entryID || item.entryID == *entryID) waiting.push_back(item.id);
    }
    std::unordered_set<std::string> taken;
    if (rule == ConflictRule::keepBoth && !waiting.empty()) {
        for (const TransferItem& item : job_->items)
            taken.insert(item.relativePath);
    }
    // The name that is found free is taken from then on.
    const auto isTaken = [&taken](const std::string& path) { return !taken.insert(path).second; };
    return std::ranges::count_if(waiting, [&](const UUID& id) { return decide(id, rule, isTaken); });
}

}  // namespace vark
