#pragma once

#include <memory>
#include <optional>

#include "VarkApp/Queue/QueueRequest.h"
#include "VarkApp/Surroundings.h"
#include "VarkCore/Policies/SingleInstance.h"

namespace vark::app {

/// The right to change the queue, for as long as it lives: of all processes of this person one at a time has
/// the running lock. Null when another one has it.
using QueueLock = std::shared_ptr<SingleInstance::Lock>;
QueueLock takeQueue(Surroundings& surroundings);

struct Asked {
    /// For whoever is to carry the request out himself, since nobody is running.
    QueueLock lock;
    /// Without the lock: what became of the request.
    QueueAnswer answer;
};
/// Takes the lock, or asks the process that has it; takes it too when that process ends before it has taken
/// the request. `surroundings` outlives the task.
Task<Asked> takeQueueOrAsk(Surroundings& surroundings, QueueRequest request);

/// Carries the request out, on the saved queue or by whoever is running. `surroundings` outlives the task.
Task<QueueAnswer> changeQueue(Surroundings& surroundings, QueueRequest request);

/// The saved queue, or a `Failure` that says that it cannot be read.
std::optional<TransferJob> savedQueue(Surroundings& surroundings);

}  // namespace vark::app
