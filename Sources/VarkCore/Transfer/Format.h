#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "VarkCore/Foundation/Time/Calendar.h"
#include "VarkCore/Foundation/Time/Date.h"

namespace vark {

/// The one wording of sizes, rates, times and counts. Pure functions; units are decimal.
struct Format {
    /// "12.5 MB/s"; empty for 0 or less.
    static std::string rate(double bytesPerSecond);
    /// "1 h 30 min"; empty for what is no time.
    static std::string timeLeft(double seconds);
    /// Rounded down, so that "100%" means all of it.
    static std::string percent(double fraction);
    static std::string date(Date date, const Calendar& calendar);
    static std::string time(Date date, const Calendar& calendar);
    static std::string number(std::int64_t number);
    /// "17:30"
    static std::string clock(int minutesOfDay);
    /// "1 file", "1,234 files"
    static std::string count(std::int64_t number, std::string_view word,
                             std::optional<std::string_view> plural = std::nullopt);
    static std::string bytes(std::int64_t count);
};

}  // namespace vark
