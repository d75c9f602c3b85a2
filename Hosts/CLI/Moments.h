#pragma once

#include <optional>
#include <string_view>

#include "Hosts/CLI/Arguments.h"
#include "VarkCore/Foundation/Time/Calendar.h"

namespace vark::cli {

/// A minute of a day as a clock on the wall shows it in the calendar's time zone; nothing for a day that no
/// calendar has.
std::optional<Date> momentOf(int year, int month, int day, int minuteOfDay, const Calendar& calendar);

/// A moment that has passed: "2h" or "3d" ago, "09:00" of today, "today", "yesterday", "2026-11-20" or
/// "2026-11-20 09:00".
Parsed<Date> parseSince(std::string_view text, Date now, const Calendar& calendar);

}  // namespace vark::cli
