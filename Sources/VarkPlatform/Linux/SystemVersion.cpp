#include "VarkPlatform/Linux/SystemVersion.h"

#include <sys/utsname.h>

#include <string_view>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

constexpr std::uint64_t longestRelease = 1 << 16;
constexpr std::string_view nameField = "PRETTY_NAME=";

std::string nameOfTheSystem(const std::filesystem::path& release) {
    try {
        for (const std::string& line : splitKeepingEmpty(readWholeFile(release, longestRelease), '\n')) {
            if (!line.starts_with(nameField)) continue;
            std::string name = line.substr(nameField.size());
            std::erase(name, '"');
            return name;
        }
    } catch (const FileError&) {
        // Not every system says who made it.
    }
    return "";
}

}  // namespace

std::string systemVersion(const std::filesystem::path& release) {
    utsname kernel{};
    uname(&kernel);
    const std::string name = nameOfTheSystem(release);
    return (name.empty() ? "" : name + ", ") + kernel.sysname + " " + kernel.release;
}

}  // namespace vark
