#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark {

/// How far a piece of work has come, in units of its own. A part of it may be another progress, which counts
/// for as many units of this one as it was given, in proportion to how far it has come itself. Any thread may
/// call.
class Progress {
  public:
    explicit Progress(std::int64_t totalUnitCount) : total_(totalUnitCount) {}

    std::int64_t totalUnitCount() const;
    void setTotalUnitCount(std::int64_t units);
    /// Those of children that have come to their end included.
    std::int64_t completedUnitCount() const;
    void setCompletedUnitCount(std::int64_t units);
    /// From 0 to 1, children included.
    double fractionCompleted() const;

    void addChild(std::shared_ptr<const Progress> child, std::int64_t pendingUnitCount);

  private:
    struct Child {
        std::shared_ptr<const Progress> progress;
        std::int64_t units;
    };

    mutable Mutex lock_;
    std::int64_t total_ VARK_GUARDED_BY(lock_);
    std::int64_t completed_ VARK_GUARDED_BY(lock_) = 0;
    std::vector<Child> children_ VARK_GUARDED_BY(lock_);
};

}  // namespace vark
