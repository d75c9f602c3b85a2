#include "VarkCore/Activity/ActivityHistory.h"

#include <algorithm>
#include <span>

#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Connection/SharedFile.h"
#include "VarkCore/Foundation/StableSort.h"

namespace vark {
namespace {

constexpr double secondsKept = 7'776'000;
constexpr std::size_t largestFile = 4'194'304;
constexpr std::size_t linesAfterPrune = 20'000;

void appendLine(JSONWriter& json, const ActivityEntry& entry) {
    entry.encode(json);
    json.endLine();
}

/// Calls `use` with every line that makes sense.
template <class Use>
void forEachEntry(std::string_view lines, Use use) {
    while (!lines.empty()) {
        const std::size_t end = std::min(lines.find('\n'), lines.size());
        const std::string_view line = lines.substr(0, end);
        lines.remove_prefix(std::min(end + 1, lines.size()));
        if (line.empty()) continue;
        try {
            use(ActivityEntry::fromJSON(parseJSON(line)));
        } catch (const DecodingError&) {
            continue;
        }
    }
}

/// Writes the newest of the entries, which are the oldest first, as the whole file.
void prune(std::span<const ActivityEntry> entries, const std::filesystem::path& file) {
    JSONWriter json;
    for (const ActivityEntry& entry : entries.last(std::min(entries.size(), linesAfterPrune)))
        appendLine(json, entry);
    SharedFile::write(file, json.text(), Durability::synced);
}

/// Whose format a line that takes the entry up is worded by; null when it stays a line of its own.
const std::string* foldingSentence(const ActivityEntry& entry, const ActivityEntry& last) {
    if (!entry.group || last.group != entry.group) return nullptr;
    if (entry.many) return &*entry.many;
    return last.many ? &*last.many : nullptr;
}

}  // namespace

std::vector<ActivityEntry> ActivityHistory::read(const Folder& folder, Date now) {
    if (!folder) return {};
    const std::filesystem::path file = SharedFiles::history(*folder);
    const std::optional<std::string> lines = SharedFile::bytes(file);
    if (!lines) return {};
    std::vector<ActivityEntry> kept;
    kept.reserve(static_cast<std::size_t>(std::ranges::count(*lines, '\n')));
    forEachEntry(*lines, [&](ActivityEntry entry) {
        if (entry.at >= now - secondsKept) kept.push_back(std::move(entry));
    });
    // Lines of the same second keep the order in which they were written.
    stableSort(kept, std::less(), &ActivityEntry::at);
    if (lines->size() > largestFile) prune(kept, file);
    std::ranges::reverse(kept);
    return kept;
}

std::vector<ActivityEntry> ActivityHistory::folded(std::vector<ActivityEntry> entries) {
    std::vector<ActivityEntry> lines;
    Date seenLast{};
    for (ActivityEntry& entry : entries) {
        const bool isNear = !lines.empty() && seenLast - entry.at < secondsOfFolding;
        seenLast = entry.at;
        if (const std::string* sentence = isNear ? foldingSentence(entry, lines.back()) : nullptr) {
            lines.back().takeUpOne(*sentence);
        } else {
            lines.push_back(std::move(entry));
        }
    }
    return lines;
}

bool ActivityHistory::append(const ActivityEntry& entry, const Folder& folder) {
    if (!folder) return false;
    JSONWriter json;
    appendLine(json, entry);
    return appendInOneWrite(SharedFiles::history(*folder), json.text());
}

void ActivityHistory::clear(const Folder& folder) {
    if (folder) SharedFile::remove(SharedFiles::history(*folder));
}

}  // namespace vark
