#pragma once

#include <memory>

#include "VarkApp/Bell.h"
#include "VarkApp/Queue/QueueRequest.h"
#include "VarkApp/Surroundings.h"
#include "VarkCore/Policies/SingleInstance.h"
#include "VarkCore/Services/FolderWatch.h"

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

/// Asks the process that has the queue, and hears when that one ends: it is woken by what happens in the
/// folders of requests and of the lock, and looks at nothing again and again. Used by one task at a time; on
/// the executor's thread.
class Asking {
  public:
    explicit Asking(Surroundings& surroundings);

    /// Takes the lock, or asks the process that has it; takes it too when that process ends before it has
    /// taken the request. Fails with `FileError` when it cannot be asked.
    Task<Asked> ask(QueueRequest request);
    /// Returns after that time, or with the lock as soon as it is free.
    Task<QueueLock> waitForTheQueue(Duration longest);

  private:
    void listen();

    Surroundings& surroundings_;
    Bell bell_;
    // Last: they ring the bell.
    std::unique_ptr<FolderWatch> answers_;
    std::unique_ptr<FolderWatch> lock_;
};

/// The same once. `surroundings` outlives the task.
Task<Asked> takeQueueOrAsk(Surroundings& surroundings, QueueRequest request);

}  // namespace vark::app
