#pragma once

#include "VarkApp/Outcome.h"

namespace vark::cli {

/// Commands speak of the application's things by their own names.
using namespace app;
/// Not what a task comes to, which is the core's.
using app::Outcome;

}  // namespace vark::cli
