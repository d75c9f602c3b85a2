#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VarkBox/Store/Database.h"

namespace vark::box {

/// A file or a folder. The root has the id 0 and no name; what lies in the Bin has no parent.
struct Item {
    std::int64_t id = 0;
    std::optional<std::int64_t> parent;
    std::string name;
    bool isDir = false;
    std::int64_t size = 0;
    std::optional<double> mtime;
    std::string sha256;
    std::optional<std::string> area;
};

constexpr std::int64_t rootID = 0;

/// What a file holds, as an upload brings it.
struct Content {
    std::int64_t size = 0;
    std::string sha256{};
    std::optional<double> mtime{};
};

struct BinnedFile {
    Item item;
    std::string originalPath;
    std::string deletedBy;
};

/// The tree of items, for the length of one turn. Every change of it is also written into the change feed.
/// Refuses with sentences: 404 for what is not there, 409 with "conflict" for a name that is taken, 400 for
/// what cannot be.
class Tree {
  public:
    explicit Tree(Turn& turn) : turn_(turn) {}

    /// Only what is in the tree: nothing for an item that lies in the Bin, or in a folder there.
    std::optional<Item> find(std::int64_t id);
    std::optional<Item> find(std::string_view path);
    std::optional<Item> child(std::int64_t parent, std::string_view name);
    Item require(std::int64_t id);
    Item require(std::string_view path);

    /// In the order of their names, those after `after`.
    std::vector<Item> children(std::int64_t parent, std::string_view after, std::int64_t limit);
    std::vector<Item> folders(std::int64_t parent);
    std::vector<Item> files();
    std::string path(const Item& item);
    /// The ids from the root down to the item, as "/0/5/17/"; empty if it is not in the tree.
    std::string lineage(std::int64_t id);
    std::int64_t bytesHeld();

    Item makeFolder(std::string_view path);
    void setArea(std::int64_t id, std::string_view area);
    /// Puts a file there with its folders. A file that stands there already gets the new content and keeps
    /// its id.
    Item putFile(std::string_view path, const Content& content);
    Item rename(std::string_view path, std::string_view newName);
    Item move(std::string_view path, std::string_view folder);
    /// Gives the path in the Bin.
    std::string bin(std::string_view path, std::string_view deletedBy);
    /// What went to the Bin last from this path.
    std::optional<BinnedFile> binned(std::string_view path);

    /// Refuses a path whose way leads through a file.
    void checkWay(std::string_view path);

  private:
    std::optional<Item> row(std::int64_t id);
    Item insert(std::int64_t parent, std::string_view name, bool isDir, const Content& content);
    Item makeFolders(std::span<const std::string> components);
    void relocate(const Item& item, std::int64_t parent, std::string_view name);
    std::string freeBinPath(std::string_view name);
    /// What went to the Bin from exactly this path, and who binned it; the latest first.
    std::vector<std::pair<std::int64_t, std::string>> binnedFrom(std::string_view path);
    void noteChange(std::int64_t id, std::string_view wasUnder);
    /// Of the item and of all that lies in it: whoever remembers one of those knows it by a path that is old.
    void noteChangeOfAll(std::int64_t id, std::string_view wasUnder);

    Turn& turn_;
};

boost::json::object itemJSON(const Item& item, std::string_view path);

}  // namespace vark::box
