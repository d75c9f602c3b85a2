#pragma once

#include <optional>

#include "VarkApp/Queue/Asking.h"

namespace vark::app {

/// Carries the request out, on the saved queue or by whoever is running. `surroundings` outlives the task.
Task<QueueAnswer> changeQueue(Surroundings& surroundings, QueueRequest request);
/// The same for whoever has the lock already.
Task<QueueAnswer> changeSavedQueue(Surroundings& surroundings, QueueRequest request);

/// The saved queue, or a `Failure` that says that it cannot be read.
std::optional<TransferJob> savedQueue(Surroundings& surroundings);

}  // namespace vark::app
