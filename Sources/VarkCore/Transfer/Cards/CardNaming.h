#pragma once

#include <string>
#include <string_view>

#include "VarkCore/Foundation/Time/Calendar.h"
#include "VarkCore/Foundation/Time/Date.h"

namespace vark {

struct CardNaming {
    /// "2025-03-03 Alpha": what the files of a card are called together.
    static std::string title(std::string_view volumeName, Date date, const Calendar& calendar);
    /// The name of one folder made of a title, whatever is written on the card: dashes stand for what would
    /// lead into other folders or is no character to be seen.
    static std::string folder(std::string_view title);
};

}  // namespace vark
