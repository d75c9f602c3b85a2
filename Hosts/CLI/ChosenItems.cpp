#include "Hosts/CLI/ChosenItems.h"

#include "VarkApp/Connect/Addresses.h"

namespace vark::cli {

std::vector<VarkItem> chosenItems(CommandSurroundings& surroundings, VarkAPI& api,
                                  const SharedConnection& connection, const std::vector<std::string>& paths) {
    std::vector<VarkItem> items;
    for (const std::string& path : paths) {
        const std::string whole = joinedVarkPath(connection.rootPath, path);
        const bool isRoot = whole == connection.rootPath && connection.rootID != 0;
        items.push_back(isRoot ? VarkItem{.id = connection.rootID} : surroundings.neededItem(api, whole));
    }
    return items;
}

std::vector<std::int64_t> idsOf(const std::vector<VarkItem>& items) {
    std::vector<std::int64_t> ids;
    for (const VarkItem& item : items)
        ids.push_back(item.id);
    return ids;
}

}  // namespace vark::cli
