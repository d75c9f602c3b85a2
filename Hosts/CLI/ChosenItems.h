#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Hosts/CLI/CommandSurroundings.h"

namespace vark::cli {

/// The items at these paths below the connection's folder, in their order; of that folder itself the number
/// alone. Fails with a `Failure` that
/// names the one that is not there.
std::vector<VarkItem> chosenItems(CommandSurroundings& surroundings, VarkAPI& api,
                                  const SharedConnection& connection, const std::vector<std::string>& paths);

std::vector<std::int64_t> idsOf(const std::vector<VarkItem>& items);

}  // namespace vark::cli
