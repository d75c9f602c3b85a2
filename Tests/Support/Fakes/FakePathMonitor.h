#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "VarkCore/Services/PathMonitor.h"

namespace vark::test {

/// A way to the network with a switch, which outlives the monitor.
class FakePathMonitor final : public PathMonitor {
  public:
    class Remote {
      public:
        /// Tells the monitor's owner, if it still listens.
        void set(bool usable) const {
            if (changed_) changed_(usable);
        }

      private:
        friend class FakePathMonitor;
        std::function<void(bool)> changed_;
    };

    ~FakePathMonitor() override { remote_->changed_ = nullptr; }
    void start(std::function<void(bool usable)> changed) override {
        remote_->changed_ = std::move(changed);
        remote_->set(true);
    }
    std::shared_ptr<Remote> remote() const { return remote_; }

  private:
    std::shared_ptr<Remote> remote_ = std::make_shared<Remote>();
};

}  // namespace vark::test
