#pragma once

#include <vector>

#include "VarkCore/Activity/ActivityEntry.h"
#include "VarkCore/Connection/SharedStore.h"

namespace vark {

/// Every line of the activity of the last 90 days, in a file that processes only add to. Functions only; any
/// thread. Nothing here fails, and a damaged line costs itself alone.
struct ActivityHistory {
    using Folder = SharedStore::Folder;

    /// A like event folds into the line before it within this time.
    static constexpr double secondsOfFolding = 300;

    /// The newest first. A file that has grown large is written anew with its newest lines; a line that
    /// another process adds in just that moment is lost.
    static std::vector<ActivityEntry> read(const Folder& folder, Date now);
    /// For entries as `read` gives them: each run of like events becomes one line, which counts them. What
    /// counts is the gap between neighbours, so a steady stream is one line however long it lasts.
    static std::vector<ActivityEntry> folded(std::vector<ActivityEntry> entries);
    /// One short write; whether the whole line was written.
    static bool append(const ActivityEntry& entry, const Folder& folder);
    static void clear(const Folder& folder);
};

}  // namespace vark
