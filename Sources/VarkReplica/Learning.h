#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "VarkReplica/Replica.h"

namespace vark {

/// One page of the vark's facts on its way into the rows, within one writing turn, which the caller commits.
class Learning {
  public:
    /// Whether somebody holds the file open.
    using IsOpen = std::function<bool(Ino)>;

    /// `now` is the counter at which all of the page counts as learnt, `at` the time of day.
    Learning(Turn& turn, std::int64_t root, Asked asked, std::int64_t now, Date at, IsOpen isOpen);

    /// All items leave the places that they are about to change before the first one takes its new place: so
    /// two that swap their names are not in each other's way.
    void take(std::span<const VarkItem> items);
    /// Behind `take`, since what moved out of a folder does not go with it.
    void remove(std::span<const std::int64_t> ids);
    Learnt finish();

  private:
    struct Fact {
        const VarkItem* item;
        std::optional<Record> row;
    };
    struct Folder {
        Ino ino;
        /// So names that it lacks, and its listing, may be remembered.
        bool isListed;
    };

    std::vector<Fact> admitted(std::span<const VarkItem> items);
    /// Puts those of the kind, and leaves who waits for its folder. Answers whether any was put.
    bool putAll(std::vector<Fact>& facts, bool folders);
    bool wasRemovedSince(std::int64_t id);
    void leavePlace(Fact& fact);
    /// Whether the item's folder is known; if so it stands there now, or is parked for another reason.
    bool put(Fact& fact);
    void putInto(Folder folder, Fact& fact);
    void refresh(Record& row, const VarkItem& item);
    void replaceOpen(Record& row);
    void makeWay(Ino folder, const std::string& name, Ino comer);
    bool liesWithin(Ino folder, Ino within);
    void park(Fact& fact, bool asksAgain);
    void drop(const Record& row);
    void becomeStale(Record row);
    std::optional<Folder> folderOf(const VarkItem& item);

    void tellLeft(const Record& row);
    void tellPlace(Ino folder, const std::string& name);
    void tellGone(Ino folder, const std::string& name, Ino ino);

    ItemRows rows_;
    Turn& turn_;
    const std::int64_t root_;
    const Asked asked_;
    const std::int64_t now_;
    const Date at_;
    const IsOpen isOpen_;
    /// Folders by the vark's number, as far as they were asked for.
    std::map<std::int64_t, Folder> folders_;
    /// Where each item that has left its place was shown.
    std::map<Ino, std::pair<Ino, std::string>> left_;
    std::set<Ino> changed_;
    std::set<std::pair<Ino, std::string>> places_;
    std::vector<KernelNews> gone_;
    std::size_t taken_ = 0;
};

}  // namespace vark
