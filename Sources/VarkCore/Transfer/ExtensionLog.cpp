#include "VarkCore/Transfer/ExtensionLog.h"

#include <fmt/format.h>

#include "VarkCore/Connection/Locations.h"

namespace vark {
namespace {

constexpr std::int64_t maxBytes = 5'242'880;

}  // namespace

ExtensionLog::ExtensionLog(const SharedStore::Folder& folder, WallClock now, Calendar calendar) {
    if (const auto file = url(folder)) log_.emplace(*file, maxBytes, std::move(now), std::move(calendar));
}

std::optional<std::filesystem::path> ExtensionLog::url(const SharedStore::Folder& folder) {
    if (!folder) return std::nullopt;
    return SharedFiles::extensionsLog(*folder);
}

void ExtensionLog::note(std::string_view tag, std::string_view message) {
    if (log_) log_->write(fmt::format("[{}] {}", tag, message));
}

}  // namespace vark
