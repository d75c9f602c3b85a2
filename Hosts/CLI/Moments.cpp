#include "Hosts/CLI/Moments.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdio>
#include <ctime>

#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

constexpr double secondsOfADay = 86'400;
constexpr std::pair<char, double> units[] = {
    {'s', 1}, {'m', 60}, {'h', 3600}, {'d', secondsOfADay}, {'w', 7 * secondsOfADay}};
constexpr int minutesOfADay = 24 * 60;

/// "2h"
std::optional<double> secondsIn(std::string_view text) {
    if (text.empty()) return std::nullopt;
    double number = 0;
    const auto [end, failure] =
        std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
    if (failure != std::errc() || end + 1 != text.data() + text.size() || !(number >= 0)) return std::nullopt;
    for (const auto& [letter, seconds] : units) {
        if (*end == letter) return number * seconds;
    }
    return std::nullopt;
}

/// "09:00"
std::optional<int> minuteIn(const std::string& text) {
    int hour = 0;
    int minute = 0;
    int end = 0;
    if (sscanf(text.c_str(), "%2d:%2d%n", &hour, &minute, &end) != 2) return std::nullopt;
    const int minutes = hour * 60 + minute;
    const bool isTime =
        static_cast<std::size_t>(end) == text.size() && hour >= 0 && minute >= 0 && minute < 60;
    return isTime && minutes < minutesOfADay ? std::optional(minutes) : std::nullopt;
}

/// "2026-11-20" and what may stand behind it.
std::optional<Date> dayIn(const std::string& text, const Calendar& calendar) {
    int year = 0;
    int month = 0;
    int day = 0;
    int end = 0;
    if (sscanf(text.c_str(), "%4d-%2d-%2d%n", &year, &month, &day, &end) != 3) return std::nullopt;
    const std::string rest = text.substr(static_cast<std::size_t>(end));
    if (rest.empty()) return momentOf(year, month, day, 0, calendar);
    if (rest.front() != ' ' && rest.front() != 'T') return std::nullopt;
    const std::optional<int> minute = minuteIn(rest.substr(1));
    return minute ? momentOf(year, month, day, *minute, calendar) : std::nullopt;
}

}  // namespace

std::optional<Date> momentOf(int year, int month, int day, int minuteOfDay, const Calendar& calendar) {
    // Noon in UTC is on that day, or next to it, in every time zone.
    std::tm noon{};
    noon.tm_year = year - 1900;
    noon.tm_mon = month - 1;
    noon.tm_mday = day;
    noon.tm_hour = 12;
    const Date near = Date::fromSince1970(static_cast<double>(timegm(&noon)));
    const std::string wanted = fmt::format("{:04}-{:02}-{:02}", year, month, day);
    for (const double days : {0.0, -1.0, 1.0}) {
        const Date there = near + days * secondsOfADay;
        if (calendar.format(there, "yyyy-MM-dd") == wanted) return calendar.startOfDay(there, minuteOfDay);
    }
    return std::nullopt;
}

Parsed<Date> parseSince(std::string_view given, Date now, const Calendar& calendar) {
    const std::string text(trimmed(given));
    std::optional<Date> since;
    if (text == "today") {
        since = calendar.startOfDay(now);
    } else if (text == "yesterday") {
        since = calendar.startOfDay(calendar.startOfDay(now) - secondsOfADay / 2);
    } else if (const std::optional<double> seconds = secondsIn(text)) {
        since = now - *seconds;
    } else if (const std::optional<int> minute = minuteIn(text)) {
        since = calendar.startOfDay(now, *minute);
    } else {
        since = dayIn(text, calendar);
    }
    if (since) return *since;
    return std::unexpected(fmt::format(
        "{} is no moment. Give one like 2h, 3d, 09:00, yesterday or 2026-11-20", escapedForTerminal(given)));
}

}  // namespace vark::cli
