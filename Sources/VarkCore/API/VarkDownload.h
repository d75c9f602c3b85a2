#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "VarkCore/Concurrency/Coroutine.h"
#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Foundation/Progress.h"

namespace vark {

/// The bytes of one item on their way into a file. Open until its first outcome, and closed for good then.
/// Shared by those who wait for it and the work behind it; any thread may call.
class VarkDownload : public std::enable_shared_from_this<VarkDownload> {
  public:
    /// `stop` stops the work; it may be called more than once, and must not block.
    VarkDownload(std::shared_ptr<Progress> progress, std::function<void()> stop);

    const std::shared_ptr<Progress>& progress() const { return progress_; }
    /// Waits for the end and throws what the download failed with. A waiting task that is cancelled cancels
    /// the download, for all who wait.
    Task<void> value();
    /// Those who wait are told when the work has ended, so that nothing of it comes after.
    void cancel();
    /// For the work: no exception is success, unless it was cancelled before. Only the first call counts.
    void finish(std::exception_ptr failure);

  private:
    struct Ended {
        std::exception_ptr failure;
    };
    class EndWait;

    /// Answers whether the download is still open.
    bool enqueue(EndWait& wait);
    std::optional<Ended> ended() const;

    const std::shared_ptr<Progress> progress_;
    const std::function<void()> stop_;
    mutable Mutex lock_;
    bool isCancelled_ VARK_GUARDED_BY(lock_) = false;
    std::optional<Ended> ended_ VARK_GUARDED_BY(lock_);
    std::vector<EndWait*> waiting_ VARK_GUARDED_BY(lock_);
};

}  // namespace vark
