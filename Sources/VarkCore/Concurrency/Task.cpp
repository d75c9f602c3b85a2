#include "VarkCore/Concurrency/Task.h"

namespace vark {

thread_local constinit Driver* Driver::current_ = nullptr;

}  // namespace vark
