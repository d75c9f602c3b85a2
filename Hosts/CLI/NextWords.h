#pragma once

#include <string>

#include "Hosts/CLI/Names.h"
#include "VarkApp/Said.h"

namespace vark::cli {

/// What was said, with what to do next as commands: "Paused. Carry on with: vark resume"
std::string inWords(const Said& said);

}  // namespace vark::cli
