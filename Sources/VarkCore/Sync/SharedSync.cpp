#include "VarkCore/Sync/SharedSync.h"

#include <algorithm>

#include "VarkCore/Activity/SharedActivity.h"
#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Connection/SharedFile.h"

namespace vark {
namespace {

constexpr double secondsOfSending = 600;
constexpr double secondsOfWaiting = 3600;
constexpr double secondsOfProblem = 259'200;
constexpr std::size_t mostRecords = 500;
constexpr std::string_view notSentYet = "Vark hasn't been able to send this yet. Try again, or let us know.";

/// Changes the records as the only one who does. A lock that cannot be had loses the change.
template <class Change>
void update(const SharedSync::Folder& folder, Change change) {
    if (!folder) return;
    const std::optional<FileLock> lock = SharedFile::lock(SharedFiles::syncLock(*folder));
    if (!lock) return;
    std::vector<SyncOp> ops = SharedFile::records<SyncOp>(SharedFiles::sync(*folder));
    change(ops);
    if (ops.size() > mostRecords) ops.erase(ops.begin(), ops.end() - mostRecords);
    // The board of a machine that lost its power is out of date anyway, so nobody waits for the disk.
    SharedFile::writeRecords(SharedFiles::sync(*folder), ops, Durability::cached);
}

/// Changes the record of that identity, if there is one.
template <class Change>
void updateOne(const SharedSync::Folder& folder, std::string_view id, Change change) {
    update(folder, [&](std::vector<SyncOp>& ops) {
        const auto op = std::ranges::find(ops, id, &SyncOp::id);
        if (op != ops.end()) change(*op);
    });
}

void startOver(SyncOp& known, const SyncOp& op) {
    known.state = SyncOp::State::sending;
    known.reason.reset();
    known.bytes = std::max(known.bytes, op.bytes);
    known.done = 0;
    known.touched = op.touched;
}

}  // namespace

std::vector<SyncOp> SharedSync::read(const Folder& folder, Date now) {
    if (!folder) return {};
    std::vector<SyncOp> settled;
    for (SyncOp& op : SharedFile::records<SyncOp>(SharedFiles::sync(*folder))) {
        if (std::optional<SyncOp> standing = settle(std::move(op), now))
            settled.push_back(*std::move(standing));
    }
    return settled;
}

std::optional<SyncOp> SharedSync::settle(SyncOp op, Date now) {
    if (op.state == SyncOp::State::sending && now - op.touched > secondsOfSending) {
        op.state = SyncOp::State::waiting;
        op.reason = SyncProblem::carriesOn;
        if (!op.stoppedAt) op.stoppedAt = op.touched;
    }
    if (op.state == SyncOp::State::waiting && op.stoppedAt && now - *op.stoppedAt > secondsOfWaiting) {
        op.state = SyncOp::State::problem;
        op.reason = notSentYet;
    }
    if (op.state == SyncOp::State::problem && now - op.touched > secondsOfProblem) return std::nullopt;
    return op;
}

void SharedSync::begin(const SyncOp& op, const Folder& folder) {
    update(folder, [&](std::vector<SyncOp>& ops) {
        const auto known = std::ranges::find(ops, op.id, &SyncOp::id);
        if (known == ops.end()) {
            ops.push_back(op);
        } else {
            startOver(*known, op);
        }
    });
}

void SharedSync::progress(std::string_view id, std::int64_t done, std::int64_t bytes, const Folder& folder,
                          Date now) {
    updateOne(folder, id, [&](SyncOp& op) {
        op.done = done;
        if (bytes > 0) op.bytes = bytes;
        op.touched = now;
    });
}

void SharedSync::finish(std::string_view id, const std::optional<ActivityEntry>& lately, const Folder& folder,
                        Date now) {
    update(folder, [&](std::vector<SyncOp>& ops) {
        std::erase_if(ops, [&](const SyncOp& op) { return op.id == id; });
    });
    if (lately) SharedActivity::note(*lately, folder, now);
}

void SharedSync::stop(std::string_view id, const SyncProblem& problem, const Folder& folder, Date now) {
    updateOne(folder, id, [&](SyncOp& op) {
        op.state = problem.state;
        op.reason = problem.reason;
        op.touched = now;
        if (!op.stoppedAt) op.stoppedAt = now;
    });
}

void SharedSync::forget(const std::set<std::string>& ids, const Folder& folder) {
    update(folder, [&](std::vector<SyncOp>& ops) {
        std::erase_if(ops, [&](const SyncOp& op) { return ids.contains(op.id); });
    });
}

void SharedSync::clear(const Folder& folder) {
    if (folder) SharedFile::remove(SharedFiles::sync(*folder));
}

}  // namespace vark
