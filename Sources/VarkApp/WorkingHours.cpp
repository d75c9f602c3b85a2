#include "VarkApp/WorkingHours.h"

namespace vark::app {

namespace {

constexpr int minutesOfADay = 24 * 60;
constexpr int friday = 6;

}  // namespace

OfficeHours WorkingHours::at(Date date, const Calendar& calendar) const {
    if (startMinute < endMinute) return {true, startMinute, endMinute};
    const int minute = calendar.minuteOfDay(date);
    if (minute < endMinute) return {true, 0, endMinute};
    const int end = calendar.weekday(date) == friday ? minutesOfADay : minutesOfADay + endMinute;
    // Once they have begun, from midnight on: the first moment after it, before anybody asks here again, is
    // theirs too.
    return {true, minute < startMinute ? startMinute : 0, end};
}

}  // namespace vark::app
