#include "VarkCore/Activity/SharedActivity.h"

#include <fmt/format.h>

#include "VarkCore/Activity/ActivityHistory.h"
#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Connection/SharedFile.h"

namespace vark {
namespace {

constexpr std::size_t mostLines = 40;

bool write(const std::vector<ActivityEntry>& entries, const std::filesystem::path& folder) {
    // All of it stands in the history too, so nobody waits for the disk.
    return SharedFile::writeRecords(SharedFiles::activity(folder), entries, Durability::cached);
}

void putInFront(std::vector<ActivityEntry>& entries, const ActivityEntry& entry) {
    entries.insert(entries.begin(), entry);
    if (entries.size() > mostLines) entries.resize(mostLines);
}

/// Whether the newest line takes the entry up.
bool folds(const std::vector<ActivityEntry>& entries, const ActivityEntry& entry, Date now) {
    return !entries.empty() && entry.group && entries.front().group == entry.group &&
           now - entries.front().at < ActivityHistory::secondsOfFolding && entry.many;
}

}  // namespace

std::vector<ActivityEntry> SharedActivity::read(const Folder& folder) {
    if (!folder) return {};
    return SharedFile::records<ActivityEntry>(SharedFiles::activity(*folder));
}

bool SharedActivity::append(const ActivityEntry& entry, const Folder& folder) {
    if (!folder) return false;
    ActivityHistory::append(entry, folder);
    std::vector<ActivityEntry> entries = read(folder);
    putInFront(entries, entry);
    return write(entries, *folder);
}

bool SharedActivity::note(const ActivityEntry& entry, const Folder& folder, Date now) {
    return note(std::span(&entry, 1), folder, now);
}

bool SharedActivity::note(std::span<const ActivityEntry> newOnes, const Folder& folder, Date now) {
    if (!folder) return false;
    std::vector<ActivityEntry> entries = read(folder);
    for (const ActivityEntry& entry : newOnes) {
        ActivityHistory::append(entry, folder);
        if (folds(entries, entry, now)) {
            entries.front().takeUpOne(*entry.many);
            entries.front().at = now;
        } else {
            putInFront(entries, entry);
        }
    }
    return write(entries, *folder);
}

void SharedActivity::clear(const Folder& folder) {
    if (folder) SharedFile::remove(SharedFiles::activity(*folder));
}

std::string SharedActivity::when(Date date, Date now, const Calendar& calendar) {
    constexpr double minute = 60;
    constexpr double hour = 3600;
    constexpr double day = 86'400;
    const double age = now - date;
    if (age < minute) return "just now";
    if (age < hour) return fmt::format("{} min ago", static_cast<int>(age / minute));
    if (age < 2 * hour) return "1 hour ago";
    if (age < day) return fmt::format("{} hours ago", static_cast<int>(age / hour));
    if (age < 2 * day) return "yesterday";
    return calendar.format(date, "d MMM");
}

}  // namespace vark
