#include "VarkApp/Machine/CachePlaces.h"

#include "VarkApp/Queue/RequestFolder.h"
#include "VarkCore/Transfer/Rescue.h"

namespace vark::app {

namespace {

/// Single files are measured and never freed.
std::vector<LocalCache::Place> placesOf(Surroundings& surroundings) {
    const Locations& locations = surroundings.locations();
    std::vector<LocalCache::Place> places = {
        {"The queue", locations.queue()},
        {"A queue that could not be read", locations.damagedQueue()},
        {"Requests between terminals", locations.requests()},
        {"Diaries", locations.logsFolder(), {locations.transferLog().filename().string()}}};
    if (const SharedStore::Folder& folder = surroundings.sharedFolder()) {
        const std::filesystem::path log = SharedFiles::extensionsLog(*folder);
        places.push_back({"Diaries of the other programs", log.parent_path(), {log.filename().string()}});
        places.push_back({"The history of what was done", SharedFiles::history(*folder)});
    }
    return places;
}

/// Where files in the making may have been left by a program that was killed.
std::vector<std::filesystem::path> foldersOfLeftovers(Surroundings& surroundings) {
    const Locations& locations = surroundings.locations();
    std::vector<std::filesystem::path> folders = {locations.storageFolder(), locations.requests(),
                                                  Rescue::downloads(surroundings.platform.folders())};
    if (const SharedStore::Folder& folder = surroundings.sharedFolder()) folders.push_back(*folder);
    return folders;
}

}  // namespace

LocalCache::Report measureCache(Surroundings& surroundings) {
    LocalCache::Report report = LocalCache::measure(placesOf(surroundings));
    const std::int64_t leftovers = LocalCache::sizeOfLeftovers(foldersOfLeftovers(surroundings));
    if (leftovers > 0) report.lines.push_back({"Files that were not finished", leftovers});
    return report;
}

LocalCache::Freed freeCache(Surroundings& surroundings) {
    // What another vark is being asked, or has just answered, must not go from under it.
    const std::filesystem::path requests = surroundings.locations().requests();
    const auto inUse = [&](const std::filesystem::path& member) {
        std::error_code gone;
        const auto written = std::filesystem::last_write_time(member, gone);
        return member.parent_path() == requests && !gone &&
               std::filesystem::file_time_type::clock::now() - written < RequestFolder::longestLife;
    };
    LocalCache::Freed freed = LocalCache::evict(placesOf(surroundings), inUse);
    freed.bytes += LocalCache::sweep(foldersOfLeftovers(surroundings));
    return freed;
}

}  // namespace vark::app
