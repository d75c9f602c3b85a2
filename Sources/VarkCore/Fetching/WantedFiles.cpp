#include "VarkCore/Fetching/WantedFiles.h"

#include <algorithm>
#include <deque>
#include <set>
#include <stdexcept>
#include <unordered_set>

#include "VarkCore/Foundation/FileName.h"

namespace vark {
namespace {

constexpr std::int64_t itemsOfAPage = 1000;

const char* whyLeftOut(NameFault fault) {
    switch (fault) {
        case NameFault::leadsElsewhere:
            return "A file here cannot have that name. Rename it in the vark first.";
        case NameFault::tooLong:
            return "Its name is longer than the 255 bytes that a file here can have. Get it by itself under "
                   "another name.";
        case NameFault::holdsControls:
            return "Its name holds control characters. Get it by itself, or rename it in the vark first.";
    }
    return "";
}

class Listing {
  public:
    Listing(std::shared_ptr<VarkAPI> api, PathFilter filter)
        : api_(std::move(api)), filter_(std::move(filter)) {}

    Task<WantedFiles> all(VarkItem top, std::string name) {
        if (!top.isDir && filter_.leavesOutFile(name)) {
            ++wanted_.excluded;
        } else if (!top.isDir || !name.empty()) {
            top_ = top.isDir ? wanted_.folders.size() : 0;
            take(std::move(top), 0, std::move(name));
        } else {
            enter(top.id, 0);
        }
        while (!unlisted_.empty()) {
            const Unlisted folder = unlisted_.front();
            unlisted_.pop_front();
            co_await list(folder);
        }
        co_return std::move(wanted_);
    }

  private:
    /// A folder that is still to be listed.
    struct Unlisted {
        std::int64_t id;
        std::size_t place;
    };

    Task<void> list(Unlisted folder) {
        std::set<std::string> names;
        std::string cursor;
        for (;;) {
            VarkPage page = co_await api_->children(folder.id, cursor, itemsOfAPage, false);
            for (VarkItem& item : page.items)
                takeChild(std::move(item), folder.place, names);
            if (!page.more) co_return;
            if (page.cursor == cursor)
                throw std::runtime_error(
                    "The vark sends the same page again and again. Nothing was fetched; try again later.");
            cursor = std::move(page.cursor);
        }
    }

    void takeChild(VarkItem item, std::size_t folder, std::set<std::string>& names) {
        if (isExcluded(item, folder)) {
            ++wanted_.excluded;
        } else if (const std::optional<NameFault> fault = faultOf(item.name)) {
            leaveOut(item, whyLeftOut(*fault));
        } else if (!names.insert(item.name).second) {
            leaveOut(item, "The vark has something else of that name in the same folder.");
        } else if (item.isDir && entered_.contains(item.id)) {
            leaveOut(item, "The vark says that this folder lies in two places. It was fetched once.");
        } else {
            std::string name = item.name;
            take(std::move(item), folder, std::move(name));
        }
    }

    bool isExcluded(const VarkItem& item, std::size_t folder) const {
        if (filter_.isEmpty()) return false;
        std::string path = item.name;
        for (; folder != top_; folder = wanted_.folders[folder].parent)
            path = wanted_.folders[folder].name + "/" + path;
        return item.isDir ? filter_.leavesOutFolder(path) : filter_.leavesOutFile(path);
    }

    void take(VarkItem item, std::size_t folder, std::string name) {
        if (item.isDir) {
            wanted_.folders.push_back({folder, std::move(name)});
            enter(item.id, wanted_.folders.size() - 1);
            return;
        }
        wanted_.totalBytes += std::max<std::int64_t>(item.size, 0);
        wanted_.files.push_back({std::move(item), folder, std::move(name)});
    }

    void enter(std::int64_t id, std::size_t place) {
        entered_.insert(id);
        unlisted_.push_back({id, place});
    }

    void leaveOut(const VarkItem& item, const char* why) {
        wanted_.leftOut.push_back({item.path.empty() ? item.name : item.path, why});
    }

    const std::shared_ptr<VarkAPI> api_;
    const PathFilter filter_;
    WantedFiles wanted_;
    std::size_t top_ = 0;
    std::deque<Unlisted> unlisted_;
    /// A vark that lists a folder inside of itself would never come to an end.
    std::unordered_set<std::int64_t> entered_;
};

}  // namespace

std::filesystem::path WantedFiles::pathOf(std::size_t folder) const {
    std::vector<const std::string*> names;
    for (; folder != 0; folder = folders[folder].parent)
        names.push_back(&folders[folder].name);
    std::filesystem::path path;
    for (auto name = names.rbegin(); name != names.rend(); ++name)
        path /= **name;
    return path;
}

void WantedFiles::add(WantedFiles other) {
    // The first folder of both is the same one.
    const auto placeHere = [before = folders.size() - 1](std::size_t place) {
        return place == 0 ? 0 : place + before;
    };
    for (File& file : other.files)
        files.push_back({std::move(file.item), placeHere(file.folder), std::move(file.name)});
    for (std::size_t place = 1; place < other.folders.size(); ++place)
        folders.push_back({placeHere(other.folders[place].parent), std::move(other.folders[place].name)});
    std::ranges::move(other.leftOut, std::back_inserter(leftOut));
    totalBytes += other.totalBytes;
    excluded += other.excluded;
}

Task<WantedFiles> listWanted(std::shared_ptr<VarkAPI> api, VarkItem top, std::string name,
                             PathFilter filter) {
    Listing listing(std::move(api), std::move(filter));
    co_return co_await listing.all(std::move(top), std::move(name));
}

}  // namespace vark
