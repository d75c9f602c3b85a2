#include "VarkCore/API/SessionSettings.h"

#include <utility>

namespace vark {

HTTPSessionSettings sessionSettings(std::string via, std::optional<std::string> authorityFile) {
    HTTPSessionSettings settings;
    settings.headers = {{"User-Agent", "VarkTransfer/1.0 (macOS)"}, {"X-Vark-Via", std::move(via)}};
    settings.authorityFile = std::move(authorityFile);
    return settings;
}

}  // namespace vark
