#include "Hosts/CLI/ChosenItems.h"

#include "Hosts/CLI/Arguments.h"

namespace vark::cli {

std::vector<std::int64_t> chosenItems(Surroundings& surroundings, VarkAPI& api,
                                      const SharedConnection& connection,
                                      const std::vector<std::string>& paths) {
    std::vector<std::int64_t> ids;
    for (const std::string& path : paths) {
        const std::string whole = joinedVarkPath(connection.rootPath, path);
        const bool isRoot = whole == connection.rootPath && connection.rootID != 0;
        ids.push_back(isRoot ? connection.rootID : surroundings.neededItem(api, whole).id);
    }
    return ids;
}

}  // namespace vark::cli
