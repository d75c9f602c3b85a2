#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <unordered_map>

#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark {

/// Where items lay when they went to the Bin: the last so many. Any thread.
class BinnedEcho {
  public:
    /// One at least.
    explicit BinnedEcho(int keep);

    /// An id that is held gets the new path and keeps its age.
    void remember(std::int64_t id, std::string path);
    std::optional<std::string> path(std::int64_t of) const;
    std::size_t count() const;

  private:
    mutable Mutex lock_;
    std::unordered_map<std::int64_t, std::string> paths_ VARK_GUARDED_BY(lock_);
    std::deque<std::int64_t> order_ VARK_GUARDED_BY(lock_);
    const std::size_t keep_;
};

}  // namespace vark
