#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Hosts/CLI/Surroundings.h"

namespace vark::cli {

/// The items at these paths below the connection's folder, in their order. Fails with a `CommandError` that
/// names the one that is not there.
std::vector<std::int64_t> chosenItems(Surroundings& surroundings, VarkAPI& api,
                                      const SharedConnection& connection,
                                      const std::vector<std::string>& paths);

}  // namespace vark::cli
