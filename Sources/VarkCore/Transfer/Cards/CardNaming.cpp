#include "VarkCore/Transfer/Cards/CardNaming.h"

#include <algorithm>

#include "VarkCore/Foundation/Text.h"

namespace vark {

std::string CardNaming::title(std::string_view volumeName, Date date, const Calendar& calendar) {
    std::string title = calendar.format(date, "yyyy-MM-dd");
    const std::string_view name = withoutBlanksAround(volumeName);
    if (!name.empty()) title.append(" ").append(name);
    return title;
}

std::string CardNaming::folder(std::string_view title) {
    std::string folder(title);
    std::ranges::replace_if(
        folder, [](unsigned char byte) { return byte == '/' || byte < 0x20 || byte == 0x7F; }, '-');
    return folder;
}

}  // namespace vark
