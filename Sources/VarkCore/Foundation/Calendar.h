#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "VarkCore/Foundation/Date.h"

namespace vark {

/// The Gregorian calendar in one time zone. A value; may be read from any thread.
class Calendar {
  public:
    /// The time zone of this machine.
    static Calendar current();
    /// An Olson name, "Australia/Melbourne".
    explicit Calendar(std::string_view timeZone);

    /// 1 is Sunday, 7 is Saturday.
    int weekday(Date date) const;
    int minuteOfDay(Date date) const;
    /// The start of the day of `date` with so many minutes added by the calendar, so that a change to summer
    /// time in between is accounted for.
    Date startOfDay(Date date, int addingMinutes = 0) const;

    /// `pattern` in ICU's letters ("d MMM yyyy, HH:mm"), worded with the locale en_AU.
    std::string format(Date date, std::string_view pattern) const;

  private:
    std::string timeZone_;
};

}  // namespace vark
