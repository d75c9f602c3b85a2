#pragma once

#include <string>
#include <vector>

#include "VarkApp/Surroundings.h"
#include "VarkCore/API/Messages/DiagnosticsReport.h"
#include "VarkCore/Policies/Diagnostics.h"

namespace vark::app {

/// What this machine would tell the vark of its health, built once: what was shown is what is sent. A value.
struct HealthReport {
    DiagnosticsReport report;
    /// How far into each log it goes.
    LogCursors read;

    /// Looks at the queue, the folders and the logs, which waits for the disk.
    static HealthReport of(Surroundings& surroundings, std::string appVersion);
    /// The report in words: its one wording.
    std::vector<std::string> lines() const;
};

/// Sends it, and remembers what of the logs has been told. Fails with `VarkAPIError`. `surroundings` outlives
/// the task.
Task<void> sendReport(Surroundings& surroundings, SharedConnection connection, HealthReport health);

}  // namespace vark::app
