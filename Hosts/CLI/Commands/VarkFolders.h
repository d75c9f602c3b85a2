#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Hosts/CLI/CommandSurroundings.h"
#include "VarkCore/Actions/FolderPages.h"

namespace vark::cli {

/// In which order the items of a folder are listed: "name", "size" or "date", and without a word as the vark
/// has them. The largest and the newest come first.
struct ItemOrder {
    std::string by;
    bool isReversed = false;

    bool isVarks() const { return by.empty() && !isReversed; }
    void sort(std::vector<VarkItem>& items) const;
};
void addOrder(CLI::App& command, ItemOrder& order);

/// The folders of the vark for the commands that list them. The main thread only.
class VarkFolders {
  public:
    /// Fails like `neededConnection`.
    explicit VarkFolders(CommandSurroundings& surroundings);

    /// What a person means by a path below the connection's folder; that folder itself for an empty one.
    /// Fails with a `Failure` when there is nothing.
    VarkItem at(const std::string& path);
    /// Page by page, while anybody reads the output. A folder is listed once: one that the vark says lies in
    /// several places is told of and passed over.
    void eachPage(const VarkItem& folder, const std::function<void(std::vector<VarkItem>)>& take);
    /// All of them at once.
    std::vector<VarkItem> items(const VarkItem& folder, const ItemOrder& order);

  private:
    std::vector<VarkItem> topFolders();

    CommandSurroundings& surroundings_;
    const SharedConnection connection_;
    const std::shared_ptr<VarkAPI> api_;
    FolderPages pages_;
    std::set<std::int64_t> listed_;
};

}  // namespace vark::cli
