#pragma once

#include "VarkApp/Surroundings.h"
#include "VarkCore/Policies/LocalCache.h"

namespace vark::app {

// The room that this application takes on the machine: where it lies, measured and given back. Both wait for
// the disk.

LocalCache::Report measureCache(Surroundings& surroundings);
/// Gives back what can be given back. The queue stays, and what other processes are asking just now.
LocalCache::Freed freeCache(Surroundings& surroundings);

}  // namespace vark::app
