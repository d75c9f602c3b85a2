#include "VarkCore/Policies/LocalCache.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Transfer/Format.h"

namespace vark {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t bytesOfABlock = 512;

std::int64_t roomOf(const struct stat& values) {
    return std::int64_t{values.st_blocks} * bytesOfABlock;
}

/// The members of a folder, or none when it cannot be listed.
std::vector<fs::path> membersOf(const fs::path& folder) {
    std::vector<fs::path> members;
    std::error_code failure;
    for (fs::directory_iterator place(folder, failure), end; !failure && place != end;
         place.increment(failure))
        members.push_back(place->path());
    return members;
}

/// Of what lies below, without following links. What cannot be listed or read costs itself and no more.
std::int64_t roomBelow(const fs::path& folder) {
    std::int64_t room = 0;
    for (const fs::path& member : membersOf(folder)) {
        struct stat values{};
        if (lstat(member.c_str(), &values) != 0) continue;
        if (S_ISREG(values.st_mode)) room += roomOf(values);
        if (S_ISDIR(values.st_mode)) room += roomBelow(member);
    }
    return room;
}

std::vector<fs::path> leftoversIn(const std::vector<fs::path>& folders) {
    std::vector<fs::path> leftovers;
    for (const fs::path& folder : folders) {
        for (fs::path& member : membersOf(folder))
            if (isLeftBehind(member)) leftovers.push_back(std::move(member));
    }
    return leftovers;
}

}  // namespace

std::int64_t LocalCache::sizeOfLeftovers(const std::vector<fs::path>& folders) {
    std::int64_t bytes = 0;
    for (const fs::path& file : leftoversIn(folders))
        bytes += size(file);
    return bytes;
}

std::int64_t LocalCache::sweep(const std::vector<fs::path>& folders) {
    std::int64_t bytes = 0;
    for (const fs::path& file : leftoversIn(folders)) {
        const std::int64_t room = size(file);
        std::error_code failure;
        if (fs::remove(file, failure)) bytes += room;
    }
    return bytes;
}

std::int64_t LocalCache::size(const fs::path& url) {
    struct stat values{};
    if (stat(url.c_str(), &values) != 0) return 0;
    if (S_ISDIR(values.st_mode)) return roomBelow(url);
    return S_ISREG(values.st_mode) ? roomOf(values) : 0;
}

LocalCache::Report LocalCache::measure(const std::vector<Place>& places) {
    Report report;
    for (const Place& place : places) {
        const std::int64_t bytes = size(place.url);
        if (bytes > 0) report.lines.push_back({place.name, bytes});
    }
    return report;
}

LocalCache::Freed LocalCache::evict(const std::vector<Place>& places, const InUse& inUse) {
    Freed freed;
    for (const Place& place : places) {
        std::error_code failure;
        if (!fs::is_directory(place.url, failure)) continue;
        for (const fs::path& member : membersOf(place.url)) {
            const std::string name = member.filename().string();
            if (place.keep.contains(name)) continue;
            if (inUse(member)) {
                freed.left.push_back(name);
                continue;
            }
            const std::int64_t bytes = fs::is_symlink(fs::symlink_status(member)) ? 0 : size(member);
            std::error_code notRemoved;
            fs::remove_all(member, notRemoved);
            if (notRemoved) {
                freed.left.push_back(name);
            } else {
                freed.bytes += bytes;
            }
        }
    }
    return freed;
}

std::int64_t LocalCache::Report::total() const {
    std::int64_t total = 0;
    for (const Line& line : lines)
        total += line.bytes;
    return total;
}

std::string LocalCache::Report::describe() const {
    if (isEmpty()) return "Vark is holding nothing on this Mac.";
    return fmt::format("Vark is holding {} on this Mac.", Format::bytes(total()));
}

std::string LocalCache::Freed::describe() const {
    std::string sentence =
        bytes < 1 ? "There was nothing to free." : fmt::format("Freed {}.", Format::bytes(bytes));
    if (left.size() == 1) {
        sentence += fmt::format(" {} is still in use, so it was left alone.", left.front());
    } else if (!left.empty()) {
        sentence += fmt::format(" {} are still in use, so they were left alone.",
                                Format::count(static_cast<std::int64_t>(left.size()), "file"));
    }
    return sentence;
}

}  // namespace vark
