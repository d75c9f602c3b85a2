#pragma once

#include <functional>

namespace vark {

/// Whether this machine has a usable way to the network. Made and ended on any thread.
class PathMonitor {
  public:
    /// Ends the watching; no call of the handler is under way after it.
    virtual ~PathMonitor() = default;
    /// `changed(usable)` is called soon with the state as it is and then at each change, on the monitor's own
    /// thread. Called once.
    virtual void start(std::function<void(bool usable)> changed) = 0;
};

}  // namespace vark
