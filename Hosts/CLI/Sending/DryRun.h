#pragma once

#include "Hosts/CLI/CommandSurroundings.h"
#include "Hosts/CLI/ExitCode.h"
#include "VarkApp/Queue/QueueRequest.h"

namespace vark::cli {

/// Looks through what a request would add, and tells what would be sent. Nothing is changed, here or in the
/// vark, which is not asked: files that it has already are told of too.
ExitCode dryRun(CommandSurroundings& surroundings, const QueueRequest& request, bool json);

}  // namespace vark::cli
