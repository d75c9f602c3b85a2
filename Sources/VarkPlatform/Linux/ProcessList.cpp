#include "VarkPlatform/Linux/ProcessList.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <optional>
#include <string>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

constexpr std::uint64_t longestCommandLine = 4 << 20;

std::optional<std::int32_t> processNumber(std::string_view name) {
    std::int32_t number = 0;
    const char* end = name.data() + name.size();
    const auto read = std::from_chars(name.data(), end, number);
    if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
    return number;
}

std::string firstArgumentOf(const std::filesystem::path& process) {
    try {
        const std::vector<std::string> arguments =
            splitKeepingEmpty(readWholeFile(process / "cmdline", longestCommandLine), '\0');
        return arguments.size() > 1 ? arguments[1] : "";
    } catch (const FileError&) {
        return "";
    }
}

}  // namespace

std::vector<std::int32_t> otherCopiesDoing(std::span<const std::string_view> firstArguments) {
    std::vector<std::int32_t> copies;
    std::error_code failure;
    for (std::filesystem::directory_iterator place("/proc", failure), end; !failure && place != end;
         place.increment(failure)) {
        const std::optional<std::int32_t> number = processNumber(place->path().filename().native());
        if (!number || *number == getpid()) continue;
        std::error_code unknown;
        const bool isThisProgram =
            std::filesystem::equivalent(place->path() / "exe", "/proc/self/exe", unknown) && !unknown;
        if (isThisProgram && std::ranges::count(firstArguments, firstArgumentOf(place->path())) > 0)
            copies.push_back(*number);
    }
    return copies;
}

}  // namespace vark
