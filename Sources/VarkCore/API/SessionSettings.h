#pragma once

#include <optional>
#include <string>

#include "VarkCore/Services/HTTPSession.h"

namespace vark {

/// How the requests of one process go out to the vark. `via` names the process that makes the calls;
/// `authorityFile` holds certificates that are trusted beside the system's own.
HTTPSessionSettings sessionSettings(std::string via, std::optional<std::string> authorityFile = std::nullopt);

}  // namespace vark
