#pragma once

#include "Hosts/CLI/Display/Console.h"
#include "VarkCore/API/Messages/WhoAmI.h"
#include "VarkCore/Connection/SharedConnection.h"

namespace vark::cli {

/// Who is connected to which vark, as lines or as one object.
void printIdentity(Console& console, const SharedConnection& connection, const WhoAmI& who, bool json);

}  // namespace vark::cli
