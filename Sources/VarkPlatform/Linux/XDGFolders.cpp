#include "VarkPlatform/Linux/XDGFolders.h"

#include <fmt/format.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

constexpr std::size_t longestUserDirectoriesFile = 1 << 16;
constexpr mode_t onlyForTheOwner = 0700;

/// A variable that holds an absolute path; others are to be ignored.
std::optional<std::filesystem::path> absolutePathIn(const char* variable) {
    const char* value = std::getenv(variable);
    if (value == nullptr || value[0] != '/') return std::nullopt;
    return value;
}

std::filesystem::path findHome() {
    if (const auto home = absolutePathIn("HOME")) return *home;
    passwd record{};
    passwd* found = nullptr;
    std::array<char, 16'384> texts{};
    if (getpwuid_r(getuid(), &record, texts.data(), texts.size(), &found) == 0 && found != nullptr)
        return found->pw_dir;
    return "/";
}

/// The value of a line `NAME="$HOME/somewhere"` or `NAME="/somewhere"`; no other form counts.
std::optional<std::filesystem::path> directoryIn(std::string_view line, std::string_view name,
                                                 const std::filesystem::path& home) {
    const std::size_t start = line.find_first_not_of(" \t");
    if (start == std::string_view::npos || !line.substr(start).starts_with(name)) return std::nullopt;
    line.remove_prefix(start + name.size());
    if (!line.starts_with("=\"")) return std::nullopt;
    std::string value;
    std::size_t place = 2;
    while (place < line.size() && line[place] != '"') {
        if (line[place] == '\\' && place + 1 < line.size()) ++place;
        value += line[place++];
    }
    if (place == line.size()) return std::nullopt;
    constexpr std::string_view homePrefix = "$HOME/";
    if (value.starts_with(homePrefix)) return home / value.substr(homePrefix.size());
    if (value.starts_with('/')) return value;
    return std::nullopt;
}

/// Makes the folder if need be. Gives what keeps it from being a folder for the person alone.
std::optional<std::string> troubleWithPrivateFolder(const std::filesystem::path& folder) {
    if (mkdir(folder.c_str(), onlyForTheOwner) != 0 && errno != EEXIST)
        return FileError("Could not make", folder, errno).what();
    struct stat status{};
    if (lstat(folder.c_str(), &status) != 0) return FileError("Could not open", folder, errno).what();
    if (!S_ISDIR(status.st_mode))
        return fmt::format("{} is in the way: it is no folder. Move it away and try again.", folder.string());
    if (status.st_uid != geteuid())
        return fmt::format("The folder {} belongs to somebody else. Move it away and try again.",
                           folder.string());
    constexpr mode_t permissions = 07777;
    const bool isPrivate = (status.st_mode & permissions) == onlyForTheOwner;
    if (!isPrivate && chmod(folder.c_str(), onlyForTheOwner) != 0)
        return FileError("Could not set the permissions of", folder, errno).what();
    return std::nullopt;
}

}  // namespace

XDGFolders::XDGFolders()
    : home_(findHome()),
      data_(absolutePathIn("XDG_DATA_HOME").value_or(home_ / ".local/share")),
      state_(absolutePathIn("XDG_STATE_HOME").value_or(home_ / ".local/state")),
      config_(absolutePathIn("XDG_CONFIG_HOME").value_or(home_ / ".config")) {}

std::optional<std::filesystem::path> XDGFolders::downloads() const {
    std::filesystem::path folder = home_ / "Downloads";
    std::string lines;
    try {
        lines = readWholeFile(config_ / "user-dirs.dirs", longestUserDirectoriesFile);
    } catch (const FileError&) {
        return folder;
    }
    for (const std::string& line : splitKeepingEmpty(lines, '\n')) {
        const auto named = directoryIn(line, "XDG_DOWNLOAD_DIR", home_);
        // The home folder itself stands for "there is none".
        if (named && *named != home_ && *named != home_ / "") folder = *named;
    }
    return folder;
}

std::filesystem::path XDGFolders::groupFolder(std::string_view identifier) const {
    return data_ / "Vark Group Containers" / identifier;
}

std::optional<std::filesystem::path> XDGFolders::groupContainer(std::string_view identifier) const {
    return groupContainerTrouble(identifier) ? std::nullopt : std::optional(groupFolder(identifier));
}

std::optional<std::string> XDGFolders::groupContainerTrouble(std::string_view identifier) const {
    if (identifier.empty() || identifier.starts_with('.') || identifier.find('/') != std::string_view::npos)
        return fmt::format("\"{}\" is no name for the folder of a group.", identifier);
    std::error_code failure;
    std::filesystem::create_directories(data_, failure);
    if (failure) return FileError("Could not make", data_, failure.value()).what();
    const std::filesystem::path folder = groupFolder(identifier);
    std::optional<std::string> trouble = troubleWithPrivateFolder(folder.parent_path());
    return trouble ? trouble : troubleWithPrivateFolder(folder);
}

}  // namespace vark
