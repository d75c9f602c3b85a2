#pragma once

#include <optional>
#include <string>
#include <vector>

#include "VarkCore/Services/Volumes.h"
#include "VarkCore/Transfer/Cards/VolumeRules.h"

namespace vark::app {

/// A volume with what its top level says about it. A value.
struct VolumeLook {
    Volume volume;
    bool isCard = false;
    VolumeRules::Offer offer = VolumeRules::Offer::silent;

    /// Lists the top level, which waits for the disk.
    static VolumeLook at(const Volume& volume);
    /// "card", "disk" or "start-up disk"
    std::string kind() const;
    bool operator==(const VolumeLook&) const = default;
};

/// The mounted volumes that a person means by a name or by the path of their place.
std::vector<Volume> volumesMeant(const std::vector<Volume>& volumes, const std::string& given);

}  // namespace vark::app
