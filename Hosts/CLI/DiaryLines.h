#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "VarkCore/Foundation/Calendar.h"

namespace vark::cli {

/// One line of the diary, "3 Mar 2025, 09:41:07  Paused", taken apart.
struct DiaryLine {
    /// Nothing for the later lines of a message that holds line ends.
    std::optional<Date> at;
    std::string message;
};

DiaryLine readDiaryLine(std::string_view line, const Calendar& calendar);

}  // namespace vark::cli
