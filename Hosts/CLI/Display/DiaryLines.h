#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Foundation/Time/Calendar.h"

namespace vark::cli {

/// One sentence of the diary, "3 Mar 2025, 09:41:07  Paused", taken apart.
struct DiaryLine {
    /// As it stands in the diary, with the line ends that are part of the message.
    std::string text;
    /// Nothing when the beginning of the message is not there.
    std::optional<Date> at;
    std::string message;
};

/// The sentences that these lines make: a message that holds line ends was spread over several.
std::vector<DiaryLine> joinedDiaryLines(const std::vector<std::string>& lines, const Calendar& calendar);

}  // namespace vark::cli
