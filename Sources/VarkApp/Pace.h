#pragma once

#include <cstdint>
#include <optional>

#include "VarkApp/WorkingHours.h"

namespace vark::app {

/// How fast and when is sent. A value.
struct Pace {
    /// Bytes a second; 0 is as fast as it goes.
    std::int64_t bytesPerSecond = 0;
    std::optional<WorkingHours> hours;
    /// Pieces on their way at once, of all files together; without a value as many as the rate makes good use
    /// of. Counts from the beginning of a session.
    std::optional<int> chunksAtOnce;

    bool operator==(const Pace&) const = default;
};

}  // namespace vark::app
