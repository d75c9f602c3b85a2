#pragma once

#include <span>
#include <string>
#include <vector>

#include "VarkCore/Activity/ActivityEntry.h"
#include "VarkCore/Connection/SharedStore.h"
#include "VarkCore/Foundation/Time/Calendar.h"

namespace vark {

/// The newest lines of the activity, which every process writes and reads. Functions only; any thread.
/// Nothing here fails, and writers answer whether the line was stored. There is no lock: of two writers at
/// the same moment the last one wins, and the other line is in the history alone.
struct SharedActivity {
    using Folder = SharedStore::Folder;

    /// The newest first.
    static std::vector<ActivityEntry> read(const Folder& folder);
    static bool append(const ActivityEntry& entry, const Folder& folder);
    /// Like `append`, but a line of the same group from a short while ago takes the entry up and counts.
    static bool note(const ActivityEntry& entry, const Folder& folder, Date now);
    /// The same of several, the oldest first, for the price of little more than one.
    static bool note(std::span<const ActivityEntry> entries, const Folder& folder, Date now);
    /// The history stays.
    static void clear(const Folder& folder);

    /// "just now", "12 min ago", "yesterday", "3 Mar"
    static std::string when(Date date, Date now, const Calendar& calendar);
};

}  // namespace vark
