#pragma once

#include "VarkCore/Transfer/OfficeHours.h"

namespace vark::app {

/// The hours of weekdays in which nothing is to be sent, past midnight when they end at an earlier minute
/// than they begin. A value.
///
/// Office hours lie within one day, so the engine is given those that hold now, and asks again when they end.
struct WorkingHours {
    int startMinute = 540;
    int endMinute = 1050;

    /// What the engine is to keep at that moment, with the end that is the next one then. Saturday and Sunday
    /// stay free from midnight to midnight.
    OfficeHours at(Date date, const Calendar& calendar) const;
    bool operator==(const WorkingHours&) const = default;
};

}  // namespace vark::app
