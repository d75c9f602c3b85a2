#include "VarkCore/Transfer/OfficeHours.h"

#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {

namespace {
constexpr int minutesOfADay = 24 * 60;
}

OfficeHours OfficeHours::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    OfficeHours hours;
    hours.onlyOutside = fields.required<bool>("onlyOutside");
    hours.startMinute = fields.required<std::int32_t>("startMinute");
    hours.endMinute = fields.required<std::int32_t>("endMinute");
    return hours;
}

std::string OfficeHours::toJSON() const {
    JSONWriter json;
    json.beginObject().field("onlyOutside", onlyOutside).field("startMinute", startMinute);
    json.field("endMinute", endMinute).endObject();
    return json.take();
}

bool OfficeHours::allows(Date date, const Calendar& calendar) const {
    if (!isOn()) return true;
    const int weekday = calendar.weekday(date);
    if (weekday == 1 || weekday == 7) return true;
    const int minute = calendar.minuteOfDay(date);
    return minute < startMinute || minute >= endMinute;
}

std::optional<Date> OfficeHours::nextAllowed(Date after, const Calendar& calendar) const {
    if (allows(after, calendar)) return std::nullopt;
    return calendar.startOfDay(after, endMinute);
}

std::optional<Date> OfficeHours::nextBoundary(Date after, const Calendar& calendar) const {
    if (!isOn()) return std::nullopt;
    if (!allows(after, calendar)) return nextAllowed(after, calendar);
    const Date start = calendar.startOfDay(after, startMinute);
    return start > after ? start : calendar.startOfDay(after, minutesOfADay);
}

}  // namespace vark
