#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "VarkCore/Services/ClockWatch.h"

namespace vark::test {

/// A clock that jumps when the test says so.
class FakeClockWatch final : public ClockWatch {
  public:
    class Remote {
      public:
        void jump() const {
            if (jumped_) jumped_();
        }

      private:
        friend class FakeClockWatch;
        std::function<void()> jumped_;
    };

    ~FakeClockWatch() override { remote_->jumped_ = nullptr; }
    void start(std::function<void()> jumped) override { remote_->jumped_ = std::move(jumped); }
    std::shared_ptr<Remote> remote() const { return remote_; }

  private:
    std::shared_ptr<Remote> remote_ = std::make_shared<Remote>();
};

}  // namespace vark::test
