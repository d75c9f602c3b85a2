#include "VarkCore/Sync/SyncSummary.h"

#include <algorithm>
#include <functional>
#include <limits>

#include "VarkCore/Foundation/StableSort.h"
#include "VarkCore/Sync/SyncProblem.h"

namespace vark {
namespace {

constexpr double secondsOfMoving = 120;

void sortByTouchedLast(std::vector<SyncOp>& ops) {
    stableSort(ops, std::greater(), &SyncOp::touched);
}

/// What the file says may be nonsense: as much as there can be, and no more.
std::int64_t sumOf(std::int64_t sum, std::int64_t bytes) {
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    bytes = std::max<std::int64_t>(bytes, 0);
    return bytes > most - sum ? most : sum + bytes;
}

}  // namespace

SyncSummary::SyncSummary(const std::vector<SyncOp>& ops) {
    for (const SyncOp& op : ops) {
        switch (op.state) {
            case SyncOp::State::sending:
                sending.push_back(op);
                break;
            case SyncOp::State::waiting:
                waiting.push_back(op);
                break;
            case SyncOp::State::problem:
                problems.push_back(op);
                break;
        }
    }
    sortByTouchedLast(problems);
}

std::vector<SyncOp> SyncSummary::moving(Date now) const {
    std::vector<SyncOp> moving;
    std::ranges::copy_if(sending, std::back_inserter(moving),
                         [&](const SyncOp& op) { return op.done > 0 && now - op.touched < secondsOfMoving; });
    return moving;
}

std::optional<SyncOp> SyncSummary::current() const {
    const SyncOp* latest = nullptr;
    for (const SyncOp& op : sending) {
        if (op.kind != SyncOp::Kind::upload) continue;
        if (latest == nullptr || op.touched > latest->touched) latest = &op;
    }
    if (latest != nullptr) return *latest;
    return sending.empty() ? std::nullopt : std::optional(sending.front());
}

std::int64_t SyncSummary::bytesDone() const {
    std::int64_t sum = 0;
    for (const SyncOp& op : sending)
        sum = sumOf(sum, op.done);
    return sum;
}

std::int64_t SyncSummary::bytesTotal() const {
    std::int64_t sum = 0;
    for (const SyncOp& op : sending)
        sum = sumOf(sum, std::max(op.bytes, op.done));
    return sum;
}

std::vector<SyncSummary::WaitingGroup> SyncSummary::waitingGroups() const {
    std::vector<SyncOp> latestFirst = waiting;
    sortByTouchedLast(latestFirst);
    std::vector<WaitingGroup> groups;
    for (const SyncOp& op : latestFirst) {
        std::string folder = op.folderName();
        const auto known = std::ranges::find(groups, folder, &WaitingGroup::folder);
        if (known != groups.end()) {
            ++known->count;
            continue;
        }
        groups.push_back({std::move(folder), 1, op.reason.value_or(std::string(SyncProblem::carriesOn))});
    }
    return groups;
}

}  // namespace vark
