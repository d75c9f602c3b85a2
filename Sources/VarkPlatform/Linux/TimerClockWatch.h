#pragma once

#include <thread>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Services/ClockWatch.h"

namespace vark {

/// Hears it from a timer of the kernel's that a jump cancels, on one thread that sleeps until then.
class TimerClockWatch final : public ClockWatch {
  public:
    TimerClockWatch() = default;
    ~TimerClockWatch() override;

    /// Fails with `FileError`.
    void start(std::function<void()> jumped) override;

  private:
    void watch(const std::function<void()>& jumped) const;

    Descriptor timer_;
    Descriptor end_;
    std::thread thread_;
};

}  // namespace vark
