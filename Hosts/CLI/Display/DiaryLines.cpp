#include "Hosts/CLI/Display/DiaryLines.h"

#include <array>
#include <cstdio>

#include "Hosts/CLI/Moments.h"

namespace vark::cli {

namespace {

/// The length of the time in front, when there is one.
constexpr std::string_view afterTime = "  ";
constexpr std::size_t longestTime = 32;
constexpr std::array<std::string_view, 12> months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

std::optional<int> monthNamed(std::string_view name) {
    for (std::size_t month = 0; month < months.size(); ++month) {
        if (name.starts_with(months[month])) return static_cast<int>(month) + 1;
    }
    return std::nullopt;
}

/// "3 Mar 2025, 09:41:07" on the wall of the calendar's time zone.
std::optional<Date> readTime(const std::string& text, const Calendar& calendar) {
    char month[8] = "";
    int day = 0;
    int year = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int end = 0;
    if (sscanf(text.c_str(), "%2d %7[^ ] %4d, %2d:%2d:%2d%n", &day, month, &year, &hour, &minute, &second,
               &end) != 6)
        return std::nullopt;
    std::optional<int> monthNumber = monthNamed(month);
    if (!monthNumber || static_cast<std::size_t>(end) != text.size()) return std::nullopt;
    const std::optional<Date> moment = momentOf(year, *monthNumber, day, hour * 60 + minute, calendar);
    return moment ? std::optional(*moment + second) : std::nullopt;
}

DiaryLine readDiaryLine(const std::string& line, const Calendar& calendar) {
    const std::size_t end = line.find(afterTime);
    if (end == std::string::npos || end > longestTime) return {line, std::nullopt, line};
    std::optional<Date> at = readTime(line.substr(0, end), calendar);
    if (!at) return {line, std::nullopt, line};
    return {line, at, line.substr(end + afterTime.size())};
}

}  // namespace

std::vector<DiaryLine> joinedDiaryLines(const std::vector<std::string>& lines, const Calendar& calendar) {
    std::vector<DiaryLine> sentences;
    for (const std::string& line : lines) {
        DiaryLine read = readDiaryLine(line, calendar);
        if (read.at || sentences.empty()) {
            sentences.push_back(std::move(read));
            continue;
        }
        sentences.back().text += "\n" + line;
        sentences.back().message += "\n" + line;
    }
    return sentences;
}

}  // namespace vark::cli
