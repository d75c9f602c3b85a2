#pragma once

#include <functional>
#include <utility>

#include "VarkCore/Services/PathMonitor.h"

namespace vark {

/// A switch for the network. Reports on the thread that switches.
class FakePathMonitor final : public PathMonitor {
  public:
    void start(std::function<void(bool usable)> changed) override {
        changed_ = std::move(changed);
        changed_(usable_);
    }
    void set(bool usable) {
        if (std::exchange(usable_, usable) != usable && changed_) changed_(usable);
    }

  private:
    bool usable_ = true;
    std::function<void(bool usable)> changed_;
};

}  // namespace vark
