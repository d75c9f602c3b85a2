#pragma once

#include <exception>
#include <functional>
#include <memory>

#include "VarkCore/Concurrency/Coroutine.h"
#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Foundation/Progress.h"

namespace vark {

/// The bytes of one item on their way into a file. Open until its first outcome, and closed for good then.
/// Shared by those who wait for it and the work behind it; any thread may call.
class VarkDownload {
  public:
    /// `stop` stops the work; it may be called more than once.
    VarkDownload(std::shared_ptr<Progress> progress, std::function<void()> stop);

    const std::shared_ptr<Progress>& progress() const { return progress_; }
    /// Waits for the end and throws what the download failed with. A waiting task that is cancelled cancels
    /// the download, for all who wait.
    Task<void> value();
    void cancel();
    /// For the work: no exception is success. Only the first call counts.
    void finish(std::exception_ptr failure);
    // (private: lock, outcome, waiting)
};

}  // namespace vark
