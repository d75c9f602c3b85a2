#include "VarkPlatform/Linux/XDGFolders.h"

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

bool makePrivateFolder(const std::filesystem::path& folder) {
    if (mkdir(folder.c_str(), onlyForTheOwner) != 0 && errno != EEXIST) return false;
    struct stat status{};
    if (lstat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || status.st_uid != geteuid())
        return false;
    constexpr mode_t permissions = 07777;
    return (status.st_mode & permissions) == onlyForTheOwner || chmod(folder.c_str(), onlyForTheOwner) == 0;
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

std::optional<std::filesystem::path> XDGFolders::groupContainer(std::string_view identifier) const {
    if (identifier.empty() || identifier.starts_with('.') || identifier.find('/') != std::string_view::npos)
        return std::nullopt;
    std::error_code failure;
    std::filesystem::create_directories(data_, failure);
    const std::filesystem::path containers = data_ / "Vark Group Containers";
    std::filesystem::path folder = containers / identifier;
    if (!makePrivateFolder(containers) || !makePrivateFolder(folder)) return std::nullopt;
    return folder;
}

}  // namespace vark
