#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "VarkCore/Foundation/Time/Date.h"

namespace vark {

/// The Gregorian calendar in one time zone. A value, cheap to copy; may be read from any thread.
class Calendar {
  public:
    /// The time zone of this machine.
    static Calendar current();
    /// An Olson name, "Australia/Melbourne". A name that nobody knows counts as UTC.
    explicit Calendar(std::string_view timeZone);

    /// 1 is Sunday, 7 is Saturday.
    int weekday(Date date) const;
    int minuteOfDay(Date date) const;
    /// The moment of the day of `date` at which a clock on the wall shows so many minutes after midnight, so
    /// that a change to summer time in between is accounted for. A time that such a change leaves out counts
    /// on from it.
    Date startOfDay(Date date, int addingMinutes = 0) const;

    /// `pattern` in ICU's letters ("d MMM yyyy, HH:mm"), worded with the locale en_AU.
    std::string format(Date date, std::string_view pattern) const;

  private:
    struct Zone;
    explicit Calendar(std::shared_ptr<const Zone> zone) : zone_(std::move(zone)) {}
    std::int64_t localSeconds(Date date) const;

    std::shared_ptr<const Zone> zone_;
};

}  // namespace vark
