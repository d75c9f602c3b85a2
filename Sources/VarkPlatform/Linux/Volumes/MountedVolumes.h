#pragma once

#include "VarkCore/Services/Volumes.h"

namespace vark {

/// Volumes by the system's table of mounts. The start-up disk is the volume at "/", and all that is mounted
/// elsewhere belongs to it too, unless it was mounted where people put their disks, or is removable.
class MountedVolumes final : public Volumes {
  public:
    /// Where the system tells about mounts and devices.
    struct Sources {
        std::filesystem::path mounts = "/proc/self/mountinfo";
        std::filesystem::path blockDevices = "/sys/dev/block";
        std::filesystem::path labels = "/dev/disk/by-label";
        std::filesystem::path identifiers = "/dev/disk/by-uuid";
    };
    MountedVolumes() : MountedVolumes(Sources{}) {}
    explicit MountedVolumes(Sources sources) : sources_(std::move(sources)) {}

    std::vector<Volume> volumes() const override;
    std::optional<std::string> volumeName(const std::filesystem::path& path) const override;
    std::unique_ptr<VolumeWatch> watch(std::function<void()> changed) const override;

  private:
    struct Mount;
    std::vector<Mount> mounts() const;
    bool isRemovable(const Mount& mount) const;
    bool hasLostItsDisk(const Mount& mount) const;
    Volume volumeOf(const Mount& mount) const;

    const Sources sources_;
};

}  // namespace vark
