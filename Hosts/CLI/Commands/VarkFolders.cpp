#include "Hosts/CLI/Commands/VarkFolders.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <ranges>

#include "VarkApp/Connect/Addresses.h"
#include "VarkCore/Foundation/StableSort.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

void ItemOrder::sort(std::vector<VarkItem>& items) const {
    if (by == "name") {
        using Keyed = std::pair<std::string, VarkItem>;
        const NaturalOrder order;
        std::vector<Keyed> keyed;
        for (VarkItem& item : items)
            keyed.emplace_back(order.key(item.name), std::move(item));
        stableSort(keyed, std::less(), &Keyed::first);
        std::ranges::move(keyed | std::views::values, items.begin());
    } else if (by == "size") {
        stableSort(items, std::greater(), [](const VarkItem& item) { return item.isDir ? -1 : item.size; });
    } else if (by == "date") {
        stableSort(items, std::greater(), [](const VarkItem& item) { return item.mtime.value_or(0); });
    }
    if (isReversed) std::ranges::reverse(items);
}

void addOrder(CLI::App& command, ItemOrder& order) {
    command
        .add_option("--sort", order.by,
                    "As a file browser lists names, the largest first, or the newest first")
        ->type_name("name|size|date")
        ->check(CLI::IsMember({"name", "size", "date"}).description(""));
    command.add_flag("--reverse", order.isReversed, "The other way round");
}

VarkFolders::VarkFolders(CommandSurroundings& surroundings)
    : surroundings_(surroundings),
      connection_(surroundings.neededConnection()),
      api_(surroundings.api(connection_)),
      pages_(api_) {}

VarkItem VarkFolders::at(const std::string& path) {
    const std::string whole = joinedVarkPath(connection_.rootPath, path);
    if (whole != connection_.rootPath) return surroundings_.neededItem(*api_, whole);
    VarkItem top;
    top.id = connection_.rootID;
    top.path = whole;
    top.name = lastPathComponent(whole);
    top.isDir = true;
    return top;
}

std::vector<VarkItem> VarkFolders::topFolders() {
    // The top of a whole vark has no item, so names are all that is known.
    std::vector<VarkItem> items;
    for (const VarkFolder& folder : surroundings_.await(api_->folders(""))) {
        VarkItem item;
        item.name = folder.name;
        item.path = folder.name;
        item.isDir = true;
        items.push_back(std::move(item));
    }
    return items;
}

void VarkFolders::eachPage(const VarkItem& folder, const std::function<void(std::vector<VarkItem>)>& take) {
    const auto shown = folder.path.empty() ? connection_.shownFolders() : std::nullopt;
    const auto takeShown = [&](std::vector<VarkItem> items) {
        if (shown) std::erase_if(items, [&](const VarkItem& item) { return !shown->contains(item.name); });
        take(std::move(items));
    };
    if (folder.id == 0 && folder.path.empty()) return takeShown(topFolders());
    const std::int64_t id = folder.id != 0 ? folder.id : surroundings_.neededItem(*api_, folder.path).id;
    if (!listed_.insert(id).second) {
        surroundings_.console.say(fmt::format(
            "{}: The vark says that this folder lies in two places. It is listed once.", folder.path));
        return;
    }
    for (std::optional<std::string> cursor = ""; cursor && surroundings_.console.isRead();) {
        FolderPages::Page page = surroundings_.await(pages_.page(id, *cursor));
        takeShown(std::move(page.items));
        cursor = std::move(page.next);
    }
}

std::vector<VarkItem> VarkFolders::items(const VarkItem& folder, const ItemOrder& order) {
    std::vector<VarkItem> all;
    eachPage(folder, [&](std::vector<VarkItem> items) { std::ranges::move(items, std::back_inserter(all)); });
    order.sort(all);
    return all;
}

}  // namespace vark::cli
