#pragma once

#include <thread>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Services/Volumes.h"

namespace vark {

/// Rings when the kernel's table of mounts changes, and once more when that has settled. Made and ended on
/// any thread. Fails with `FileError` when the table cannot be watched: a card that is pulled out must not go
/// unseen.
class MountTableWatch final : public VolumeWatch {
  public:
    MountTableWatch(const std::filesystem::path& table, std::function<void()> changed);
    ~MountTableWatch() override;

  private:
    void watch(const std::function<void()>& changed) const;

    Descriptor table_;
    Descriptor end_;
    std::thread thread_;
};

}  // namespace vark
