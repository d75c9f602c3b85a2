#include "VarkPlatform/Linux/Volumes/MountedVolumes.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <ranges>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Paths.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkPlatform/Linux/Volumes/MountTableWatch.h"
#include "VarkPlatform/Linux/Volumes/ProbedDisk.h"

namespace vark {
namespace {

using Path = std::filesystem::path;

/// The system's small files have no length of their own.
constexpr std::size_t longestTable = 16 << 20;

/// Undoes backslash escapes: `introducer`, then `digits` digits to `base`.
std::string unescaped(std::string_view text, std::string_view introducer, std::size_t digits, int base) {
    std::string plain;
    while (!text.empty()) {
        const std::string_view number = text.substr(std::min(introducer.size(), text.size()), digits);
        int byte = 0;
        const auto end = std::from_chars(number.data(), number.data() + number.size(), byte, base);
        if (!text.starts_with(introducer) || number.size() < digits ||
            end.ptr != number.data() + number.size()) {
            plain += text.front();
            text.remove_prefix(1);
            continue;
        }
        plain += static_cast<char>(byte);
        text.remove_prefix(introducer.size() + digits);
    }
    return plain;
}

bool isBelow(const Path& path, std::initializer_list<const char*> folders) {
    return std::ranges::any_of(folders,
                               [&](const Path& folder) { return path != folder && liesIn(path, folder); });
}

/// The name of the link in `folder` that leads to `device`.
std::optional<std::string> nameOfLinkTo(const Path& device, const Path& folder) {
    std::error_code failure;
    const Path target = std::filesystem::canonical(device, failure);
    if (failure) return std::nullopt;
    for (const auto& link : std::filesystem::directory_iterator(folder, failure)) {
        std::error_code broken;
        if (std::filesystem::canonical(link.path(), broken) == target && !broken)
            return unescaped(link.path().filename().native(), "\\x", 2, 16);
    }
    return std::nullopt;
}

}  // namespace

struct MountedVolumes::Mount {
    std::string device;  // "major:minor"
    Path path;
    std::string source;
    bool isVolume = false;
    bool isRemovable = false;
};

std::vector<Volume> MountedVolumes::volumes() const {
    std::vector<Volume> volumes;
    for (const Mount& mount : mounts()) {
        if (mount.isVolume || mount.path == "/") volumes.push_back(volumeOf(mount));
    }
    return volumes;
}

std::optional<std::string> MountedVolumes::volumeName(const Path& path) const {
    std::error_code failure;
    const Path real = std::filesystem::weakly_canonical(path, failure);
    if (failure) return std::nullopt;
    const std::vector<Mount> all = mounts();
    const Mount* holder = nullptr;
    for (const Mount& mount : all) {
        const bool isCloser = holder == nullptr || mount.path.native().size() > holder->path.native().size();
        if (isCloser && liesIn(real, mount.path)) holder = &mount;
    }
    if (holder == nullptr || !holder->isVolume) return std::nullopt;
    return volumeOf(*holder).name;
}

std::unique_ptr<VolumeWatch> MountedVolumes::watch(std::function<void()> changed) const {
    return std::make_unique<MountTableWatch>(sources_.mounts, std::move(changed));
}

/// One mount for each place: of several at one place the last covers the others.
std::vector<MountedVolumes::Mount> MountedVolumes::mounts() const {
    std::string table;
    try {
        table = readWholeFile(sources_.mounts, longestTable);
    } catch (const FileError&) {
        return {};
    }
    std::vector<Mount> mounts;
    for (const std::string& line : splitKeepingEmpty(table, '\n')) {
        // number parent device root path options [more ...] - type source options
        const std::vector<std::string> fields = splitKeepingEmpty(line, ' ');
        const auto dash = std::ranges::find(fields, "-");
        if (fields.size() < 5 || fields.end() - dash < 3) continue;
        Mount mount{fields[2], unescaped(fields[4], "\\", 3, 8), unescaped(dash[2], "\\", 3, 8)};
        std::erase_if(mounts, [&](const Mount& before) { return before.path == mount.path; });
        mounts.push_back(std::move(mount));
    }
    std::erase_if(mounts, [&](const Mount& mount) { return hasLostItsDisk(mount); });
    const auto root = std::ranges::find(mounts, Path("/"), &Mount::path);
    for (Mount& mount : mounts) {
        if (root != mounts.end() && mount.device == root->device) continue;
        mount.isRemovable = isRemovable(mount);
        mount.isVolume = mount.isRemovable || isBelow(mount.path, {"/media", "/run/media", "/mnt"});
    }
    return mounts;
}

/// A disk that was pulled out stays in the table until somebody unmounts what is left of it.
bool MountedVolumes::hasLostItsDisk(const Mount& mount) const {
    const bool isOnADisk = !mount.device.starts_with("0:");
    std::error_code unknown;
    return isOnADisk && mount.path != "/" && std::filesystem::exists(sources_.blockDevices, unknown) &&
           !std::filesystem::exists(sources_.blockDevices / mount.device, unknown);
}

bool MountedVolumes::isRemovable(const Mount& mount) const {
    // The directory of a partition lies in that of its disk, behind a link.
    const std::string device = (sources_.blockDevices / mount.device).native();
    return std::ranges::any_of(std::array{"/removable", "/../removable"}, [&](const char* place) {
        try {
            return readWholeFile(device + place, longestTable).starts_with('1');
        } catch (const FileError&) {
            return false;
        }
    });
}

Volume MountedVolumes::volumeOf(const Mount& mount) const {
    const bool isBoot = mount.path == "/";
    const std::string place = isBoot ? "/" : mount.path.filename().native();
    ProbedDisk disk{nameOfLinkTo(mount.source, sources_.labels),
                    nameOfLinkTo(mount.source, sources_.identifiers)};
    // The links are udev's, which does not run everywhere.
    if (!disk.id) {
        ProbedDisk probed = ProbedDisk::at(mount.source);
        disk.id = std::move(probed.id);
        if (!disk.label) disk.label = std::move(probed.label);
    }
    return {
        .name = repairedUTF8(disk.label.value_or(place)),
        .path = mount.path,
        .id = disk.id,
        // What the desktop has mounted for a person, it lets the person eject.
        .ejectable = !isBoot && (mount.isRemovable || isBelow(mount.path, {"/media", "/run/media"})),
        .isBoot = isBoot,
    };
}

}  // namespace vark
