#pragma once

#include <atomic>
#include <cstdint>

namespace vark {

/// Bytes moved so far: written by whoever moves them, read by whoever watches. Any thread.
class ByteCounter {
  public:
    std::int64_t value() const { return count_.load(std::memory_order_relaxed); }
    void set(std::int64_t count) { count_.store(count, std::memory_order_relaxed); }

  private:
    std::atomic<std::int64_t> count_ = 0;
};

}  // namespace vark
