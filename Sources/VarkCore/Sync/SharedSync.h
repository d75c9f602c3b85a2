#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Activity/ActivityEntry.h"
#include "VarkCore/Connection/SharedStore.h"
#include "VarkCore/Sync/SyncOp.h"
#include "VarkCore/Sync/SyncProblem.h"

namespace vark {

/// The board on which our processes tell one another what this machine still owes the vark: one file in the
/// shared folder, whose writers take turns by a lock. Functions only; any thread, which they block for as
/// long as a small file takes to be read and written. Nothing here fails, and without a folder nothing is
/// done: no change of a person's files may fail because of the board.
struct SharedSync {
    using Folder = SharedStore::Folder;

    /// The records as they stand now: one that shows no life moves on, and is dropped in the end, so that a
    /// process that died leaves none behind as if it were at work. Writes nothing and takes no lock.
    static std::vector<SyncOp> read(const Folder& folder, Date now);
    /// One record by the limits of time; nothing when it is dropped.
    static std::optional<SyncOp> settle(SyncOp op, Date now);

    /// A record of the same identity is started over.
    static void begin(const SyncOp& op, const Folder& folder);
    /// `bytes` of 0 keeps the size that is known. Costs a write of the file: report pieces, not bytes.
    static void progress(std::string_view id, std::int64_t done, std::int64_t bytes, const Folder& folder,
                         Date now);
    /// It has landed. `lately` goes to the activity.
    static void finish(std::string_view id, const std::optional<ActivityEntry>& lately, const Folder& folder,
                       Date now = systemDate());
    static void stop(std::string_view id, const SyncProblem& problem, const Folder& folder, Date now);
    static void forget(const std::set<std::string>& ids, const Folder& folder);
    static void clear(const Folder& folder);
};

}  // namespace vark
