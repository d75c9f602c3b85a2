#pragma once

#include <compare>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vark {

/// A moment, in seconds since 1 January 2001 UTC (the reference date). A plain value.
/// Its three wire forms: `sinceReference` as a number, `iso8601` as text, `since1970` as a number.
struct Date {
    double sinceReference = 0;

    static constexpr double referenceSince1970 = 978307200.0;

    static constexpr Date fromSince1970(double seconds) { return Date{seconds - referenceSince1970}; }
    constexpr double since1970() const { return sinceReference + referenceSince1970; }

    constexpr auto operator<=>(const Date&) const = default;
    constexpr Date operator+(double seconds) const { return Date{sinceReference + seconds}; }
    constexpr Date operator-(double seconds) const { return Date{sinceReference - seconds}; }
    constexpr double operator-(Date other) const { return sinceReference - other.sinceReference; }
};

/// "2025-03-03T09:41:07Z": whole seconds (the part below a second is cut), in UTC. A date outside the years 0
/// to 9999 is written as the nearest one inside.
std::string iso8601(Date date);
/// The 20 characters of `iso8601`, written at `to`.
void writeISO8601(Date date, char* to);
constexpr std::size_t iso8601Length = 20;
/// Reads what `iso8601` writes, and any other time-zone designator ("+10:00"). Nothing for other text.
std::optional<Date> dateFromISO8601(std::string_view text);

/// Where the time of day comes from. Passed in beside the steady `Clock`, so that tests decide what day it
/// is.
using WallClock = std::function<Date()>;
/// The system's own time.
Date systemDate();

}  // namespace vark
