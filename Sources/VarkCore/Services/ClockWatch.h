#pragma once

#include <functional>

namespace vark {

/// Hears when the machine's time of day jumps: somebody sets the clock, or the machine has slept. Made and
/// ended on any thread.
class ClockWatch {
  public:
    /// Ends the watching; no call of the handler is under way after it.
    virtual ~ClockWatch() = default;
    /// `jumped` is called soon after each jump, on the watch's own thread. Called once.
    virtual void start(std::function<void()> jumped) = 0;
};

}  // namespace vark
