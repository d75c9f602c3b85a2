#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "VarkCore/Sync/SyncOp.h"

namespace vark {

/// All that this machine owes the vark, as it is shown. A value made of what `SharedSync::read` gives.
struct SyncSummary {
    /// Changes of one folder that wait, told together.
    struct WaitingGroup {
        /// Its name; empty at the top of the vark.
        std::string folder;
        std::int64_t count = 0;
        std::string reason;
        bool operator==(const WaitingGroup&) const = default;
    };

    SyncSummary() = default;
    explicit SyncSummary(const std::vector<SyncOp>& ops);

    /// In the order in which they began.
    std::vector<SyncOp> sending;
    std::vector<SyncOp> waiting;
    /// The most recently touched first.
    std::vector<SyncOp> problems;

    /// Those of `sending` of which something has gone, and not long ago.
    std::vector<SyncOp> moving(Date now) const;
    /// What to show as the thing being sent.
    std::optional<SyncOp> current() const;
    std::int64_t bytesDone() const;
    std::int64_t bytesTotal() const;
    /// The folder that stopped last comes first.
    std::vector<WaitingGroup> waitingGroups() const;
};

}  // namespace vark
