#include "VarkCore/Foundation/Time/Date.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace vark {
namespace {

using std::chrono::sys_days;
using std::chrono::year_month_day;

constexpr std::int64_t secondsOfDay = 86400;

void writeDigits(char* to, int count, unsigned value) {
    for (int place = count - 1; place >= 0; --place) {
        to[place] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
}

/// Takes fixed pieces off the front of a text. After a piece that does not fit `failed` stays true.
class Scanner {
  public:
    explicit Scanner(std::string_view text) : rest_(text) {}

    unsigned digits(std::size_t count) {
        unsigned value = 0;
        for (std::size_t index = 0; index < count; ++index) {
            if (index >= rest_.size() || rest_[index] < '0' || rest_[index] > '9') {
                failed = true;
                return 0;
            }
            value = value * 10 + static_cast<unsigned>(rest_[index] - '0');
        }
        rest_.remove_prefix(count);
        return value;
    }

    bool takes(char expected) {
        if (rest_.empty() || rest_.front() != expected) return false;
        rest_.remove_prefix(1);
        return true;
    }
    void expect(char expected) { failed = !takes(expected) || failed; }
    bool atEnd() const { return rest_.empty(); }

    bool failed = false;

  private:
    std::string_view rest_;
};

/// "Z", "+10:00", "+1000" or "+10", as seconds east of UTC.
int scanOffset(Scanner& scanner) {
    if (scanner.takes('Z')) return 0;
    const bool west = scanner.takes('-');
    if (!west) scanner.expect('+');
    const unsigned hours = scanner.digits(2);
    unsigned minutes = 0;
    if (scanner.takes(':') || !scanner.atEnd()) minutes = scanner.digits(2);
    if (hours > 23 || minutes > 59) scanner.failed = true;
    const int seconds = static_cast<int>(hours * 3600 + minutes * 60);
    return west ? -seconds : seconds;
}

}  // namespace

void writeISO8601(Date date, char* to) {
    using namespace std::chrono_literals;
    constexpr std::int64_t first = sys_days(year_month_day(0y / 1 / 1)).time_since_epoch() / 1s;
    constexpr std::int64_t last = sys_days(year_month_day(9999y / 12 / 31)).time_since_epoch() / 1s + 86399;

    const double since1970 = std::isnan(date.sinceReference) ? 0 : date.since1970();
    const auto seconds = static_cast<std::int64_t>(
        std::floor(std::clamp(since1970, static_cast<double>(first), static_cast<double>(last))));
    const auto day =
        std::chrono::floor<std::chrono::days>(std::chrono::sys_seconds(std::chrono::seconds(seconds)));
    const year_month_day calendar(day);
    const auto ofDay = static_cast<unsigned>(seconds - day.time_since_epoch().count() * secondsOfDay);

    writeDigits(to, 4, static_cast<unsigned>(static_cast<int>(calendar.year())));
    to[4] = '-';
    writeDigits(to + 5, 2, static_cast<unsigned>(calendar.month()));
    to[7] = '-';
    writeDigits(to + 8, 2, static_cast<unsigned>(calendar.day()));
    to[10] = 'T';
    writeDigits(to + 11, 2, ofDay / 3600);
    to[13] = ':';
    writeDigits(to + 14, 2, ofDay / 60 % 60);
    to[16] = ':';
    writeDigits(to + 17, 2, ofDay % 60);
    to[19] = 'Z';
}

std::string iso8601(Date date) {
    std::string text(iso8601Length, '\0');
    writeISO8601(date, text.data());
    return text;
}

std::optional<Date> dateFromISO8601(std::string_view text) {
    Scanner scanner(text);
    const unsigned year = scanner.digits(4);
    scanner.expect('-');
    const unsigned month = scanner.digits(2);
    scanner.expect('-');
    const unsigned dayOfMonth = scanner.digits(2);
    scanner.expect('T');
    const unsigned hour = scanner.digits(2);
    scanner.expect(':');
    const unsigned minute = scanner.digits(2);
    scanner.expect(':');
    const unsigned second = scanner.digits(2);
    const int offset = scanOffset(scanner);
    if (scanner.failed || !scanner.atEnd()) return std::nullopt;

    const year_month_day calendar(std::chrono::year(static_cast<int>(year)), std::chrono::month(month),
                                  std::chrono::day(dayOfMonth));
    if (!calendar.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
    const std::int64_t seconds = sys_days(calendar).time_since_epoch().count() * secondsOfDay +
                                 static_cast<std::int64_t>(hour * 3600 + minute * 60 + second) - offset;
    return Date::fromSince1970(static_cast<double>(seconds));
}

Date systemDate() {
    const std::chrono::duration<double> since1970 = std::chrono::system_clock::now().time_since_epoch();
    return Date::fromSince1970(since1970.count());
}

}  // namespace vark
