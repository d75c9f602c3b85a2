#pragma once

#include <string_view>

namespace vark {

/// The system's own log. Any thread; a failure to log is no failure.
class SystemLog {
  public:
    virtual ~SystemLog() = default;
    /// With the subsystem "dev.vark.mac".
    virtual void note(std::string_view category, std::string_view text) = 0;
};

}  // namespace vark
