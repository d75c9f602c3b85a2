#include "VarkCore/Transfer/Format.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "VarkCore/Foundation/Text.h"

namespace vark {

std::string Format::rate(double bytesPerSecond) {
    if (!(bytesPerSecond > 0)) return {};
    if (bytesPerSecond >= 1e9) return fmt::format("{:.1f} GB/s", bytesPerSecond / 1e9);
    if (bytesPerSecond >= 1e6) return fmt::format("{:.1f} MB/s", bytesPerSecond / 1e6);
    if (bytesPerSecond >= 1000) return fmt::format("{:.0f} KB/s", bytesPerSecond / 1000);
    return fmt::format("{:.0f} B/s", bytesPerSecond);
}

std::string Format::timeLeft(double seconds) {
    if (!std::isfinite(seconds) || seconds < 0) return {};
    if (seconds < 5) return "a moment";
    if (seconds < 60) return fmt::format("{:.0f} s", std::round(seconds));

    constexpr double longest = 9e15;
    const auto minutes = static_cast<std::int64_t>(std::round(std::min(seconds, longest) / 60));
    if (minutes <= 59) return fmt::format("{} min", minutes);
    const std::int64_t hours = minutes / 60;
    if (minutes < 1440)
        return minutes % 60 == 0 ? fmt::format("{} h", hours)
                                 : fmt::format("{} h {} min", hours, minutes % 60);
    const std::int64_t days = hours / 24;
    return hours % 24 == 0 ? fmt::format("{} d", days) : fmt::format("{} d {} h", days, hours % 24);
}

std::string Format::percent(double fraction) {
    const double whole = std::isnan(fraction) ? 0 : std::floor(fraction * 100);
    return fmt::format("{:.0f}%", std::clamp(whole, 0.0, 100.0));
}

std::string Format::date(Date date, const Calendar& calendar) {
    return calendar.format(date, "d MMM yyyy, HH:mm");
}

std::string Format::time(Date date, const Calendar& calendar) {
    return calendar.format(date, "HH:mm");
}

std::string Format::number(std::int64_t number) {
    return decimalNumber(number);
}

std::string Format::clock(int minutesOfDay) {
    return fmt::format("{:02}:{:02}", minutesOfDay / 60, minutesOfDay % 60);
}

std::string Format::count(std::int64_t number, std::string_view word,
                          std::optional<std::string_view> plural) {
    if (number == 1) return fmt::format("{} {}", decimalNumber(number), word);
    return plural ? fmt::format("{} {}", decimalNumber(number), *plural)
                  : fmt::format("{} {}s", decimalNumber(number), word);
}

std::string Format::bytes(std::int64_t count) {
    const auto size = static_cast<double>(count);
    if (size >= 1e12) return fmt::format("{:.1f} TB", size / 1e12);
    if (size >= 1e9) return fmt::format("{:.1f} GB", size / 1e9);
    if (size >= 1e6) return fmt::format("{:.0f} MB", size / 1e6);
    if (size >= 1000) return fmt::format("{:.0f} KB", size / 1000);
    return count == 1 ? "1 byte" : fmt::format("{} bytes", count);
}

}  // namespace vark
