#pragma once

#include <cstdint>

#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Foundation/Time/Date.h"

namespace vark {

/// The pace of all senders that share it, as the time at which the bytes promised so far will have gone out.
/// Whoever asks has promised the bytes, whether or not it then waits. Any thread.
class TokenBucket {
  public:
    /// 0 or less means no limit.
    explicit TokenBucket(std::int64_t bytesPerSecond);

    std::int64_t bytesPerSecond() const;
    /// Starts afresh: no debt of the old rate is paid.
    void setBytesPerSecond(std::int64_t bytesPerSecond);
    /// The seconds to wait before sending so many bytes.
    double delay(std::int64_t bytes, Date now);

  private:
    mutable Mutex lock_;
    Date nextFree_ VARK_GUARDED_BY(lock_);
    std::int64_t rate_ VARK_GUARDED_BY(lock_);
};

}  // namespace vark
