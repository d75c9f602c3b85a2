#pragma once

#include <string>
#include <utility>
#include <vector>

#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Services/SystemLog.h"

namespace vark {

/// Keeps what was noted, as "category: text". Any thread.
class ListLog final : public SystemLog {
  public:
    void note(std::string_view category, std::string_view text) override {
        Locked hold(lock_);
        notes_.push_back(std::string(category) + ": " + std::string(text));
    }
    std::vector<std::string> notes() const {
        Locked hold(lock_);
        return notes_;
    }

  private:
    mutable Mutex lock_;
    std::vector<std::string> notes_ VARK_GUARDED_BY(lock_);
};

}  // namespace vark
