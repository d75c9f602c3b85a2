#pragma once

#include <boost/json/value.hpp>
#include <optional>
#include <string>

#include "VarkCore/Foundation/Time/Calendar.h"
#include "VarkCore/Foundation/Time/Date.h"

namespace vark {

/// A person's wish that big sends keep out of the working day. A value; the questions are pure. Weekends are
/// always allowed. A window that does not begin before it ends switches the rule off, so that a bad setting
/// cannot stop the queue for good.
struct OfficeHours {
    bool onlyOutside = false;
    int startMinute = 540;
    int endMinute = 1050;

    bool operator==(const OfficeHours&) const = default;

    static OfficeHours fromJSON(const boost::json::value& value);
    std::string toJSON() const;

    bool allows(Date date, const Calendar& calendar) const;
    /// When sending may begin again; nothing if it is allowed now.
    std::optional<Date> nextAllowed(Date after, const Calendar& calendar) const;
    /// The next moment at which `allows` may answer something else than now, which is midnight at the latest;
    /// nothing when the rule is off.
    std::optional<Date> nextBoundary(Date after, const Calendar& calendar) const;

  private:
    bool isOn() const { return onlyOutside && startMinute < endMinute; }
};

}  // namespace vark
