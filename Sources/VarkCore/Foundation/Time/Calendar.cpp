#include "VarkCore/Foundation/Time/Calendar.h"

#include <unicode/basictz.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include <cmath>
#include <map>
#include <stdexcept>
#include <utility>

namespace vark {
namespace {

constexpr std::int64_t lengthOfDay = 86400;

std::int64_t startOfLocalDay(std::int64_t localSeconds) {
    return (localSeconds >= 0 ? localSeconds : localSeconds - lengthOfDay + 1) / lengthOfDay * lengthOfDay;
}

}  // namespace

/// Read-only once it is made: ICU's time zones may then be asked from any thread.
struct Calendar::Zone {
    explicit Zone(std::unique_ptr<icu::TimeZone> made) : timeZone(std::move(made)) {
        icu::UnicodeString id;
        timeZone->getID(id).toUTF8String(name);
        basic = dynamic_cast<const icu::BasicTimeZone*>(timeZone.get());
        if (basic == nullptr) throw std::runtime_error("The time zone " + name + " has no rules.");
    }

    /// Formatters are costly to make and belong to one thread at a time, so each thread keeps its own.
    const icu::SimpleDateFormat& formatter(std::string_view pattern) const {
        thread_local std::map<std::pair<std::string, std::string>, std::unique_ptr<icu::SimpleDateFormat>>
            made;
        auto& formatter = made[{name, std::string(pattern)}];
        if (formatter) return *formatter;

        UErrorCode status = U_ZERO_ERROR;
        auto fresh = std::make_unique<icu::SimpleDateFormat>(icu::UnicodeString::fromUTF8(pattern),
                                                             icu::Locale("en", "AU"), status);
        if (U_FAILURE(status))
            throw std::runtime_error(std::string("No date format: ") + u_errorName(status));
        fresh->setTimeZone(*timeZone);
        formatter = std::move(fresh);
        return *formatter;
    }

    std::unique_ptr<icu::TimeZone> timeZone;
    const icu::BasicTimeZone* basic = nullptr;
    std::string name;
};

Calendar Calendar::current() {
    return Calendar(
        std::make_shared<const Zone>(std::unique_ptr<icu::TimeZone>(icu::TimeZone::createDefault())));
}

Calendar::Calendar(std::string_view timeZone)
    : zone_(std::make_shared<const Zone>(std::unique_ptr<icu::TimeZone>(
          icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(timeZone))))) {}

std::int64_t Calendar::localSeconds(Date date) const {
    const double since1970 = std::floor(date.since1970());
    std::int32_t raw = 0;
    std::int32_t summer = 0;
    UErrorCode status = U_ZERO_ERROR;
    zone_->timeZone->getOffset(since1970 * 1000.0, false, raw, summer, status);
    return static_cast<std::int64_t>(since1970) + (raw + summer) / 1000;
}

int Calendar::weekday(Date date) const {
    constexpr std::int64_t thursday = 4;  // 1 January 1970, counted from Sunday
    const std::int64_t day = startOfLocalDay(localSeconds(date)) / lengthOfDay;
    return static_cast<int>(((day + thursday) % 7 + 7) % 7) + 1;
}

int Calendar::minuteOfDay(Date date) const {
    const std::int64_t local = localSeconds(date);
    return static_cast<int>((local - startOfLocalDay(local)) / 60);
}

Date Calendar::startOfDay(Date date, int addingMinutes) const {
    const std::int64_t wall = startOfLocalDay(localSeconds(date)) + std::int64_t{addingMinutes} * 60;
    std::int32_t raw = 0;
    std::int32_t summer = 0;
    UErrorCode status = U_ZERO_ERROR;
    zone_->basic->getOffsetFromLocal(static_cast<double>(wall) * 1000.0, UCAL_TZ_LOCAL_FORMER,
                                     UCAL_TZ_LOCAL_FORMER, raw, summer, status);
    const std::int64_t secondsEast = (raw + summer) / 1000;
    return Date::fromSince1970(static_cast<double>(wall - secondsEast));
}

std::string Calendar::format(Date date, std::string_view pattern) const {
    icu::UnicodeString worded;
    zone_->formatter(pattern).format(date.since1970() * 1000.0, worded);
    std::string text;
    return worded.toUTF8String(text);
}

}  // namespace vark
