#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vark {

/// One mounted file system that a person can see.
struct Volume {
    std::string name;
    std::filesystem::path path;
    /// What tells this volume from another of the same name.
    std::optional<std::string> id{};
    bool ejectable = false;
    bool isBoot = false;

    bool operator==(const Volume&) const = default;
};

/// Ends the watching when it ends; no call is under way after that.
class VolumeWatch {
  public:
    virtual ~VolumeWatch() = default;
};

/// The mounted volumes. Owned by the host; any thread may ask, and the answer may be old by the time that it
/// is read.
class Volumes {
  public:
    virtual ~Volumes() = default;

    virtual std::vector<Volume> volumes() const = 0;
    /// The name of the volume on which `path` lies; nothing on the start-up disk, or when it cannot be told.
    virtual std::optional<std::string> volumeName(const std::filesystem::path& path) const = 0;
    /// Calls `changed`, on a thread of the watch's own, whenever volumes may have come or gone since this
    /// call.
    virtual std::unique_ptr<VolumeWatch> watch(std::function<void()> changed) const = 0;
};

}  // namespace vark
