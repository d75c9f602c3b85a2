#include "VarkCore/Transfer/CardNaming.h"

#include "VarkCore/Foundation/Text.h"

namespace vark {

std::string CardNaming::title(std::string_view volumeName, Date date, const Calendar& calendar) {
    std::string title = calendar.format(date, "yyyy-MM-dd");
    const std::string_view name = withoutBlanksAround(volumeName);
    if (!name.empty()) title.append(" ").append(name);
    return title;
}

}  // namespace vark
