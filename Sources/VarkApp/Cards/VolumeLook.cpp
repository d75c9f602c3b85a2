#include "VarkApp/Cards/VolumeLook.h"

namespace vark::app {

namespace {

std::vector<std::string> topLevelNames(const std::filesystem::path& volume) {
    std::vector<std::string> names;
    std::error_code failure;
    for (std::filesystem::directory_iterator place(volume, failure), end; !failure && place != end;
         place.increment(failure))
        names.push_back(place->path().filename().string());
    return names;
}

}  // namespace

VolumeLook VolumeLook::at(const Volume& volume) {
    VolumeLook look{volume, VolumeRules::isCard(topLevelNames(volume.path))};
    look.offer = VolumeRules::offer(
        {.isCard = look.isCard, .isEjectableOrRemovable = volume.ejectable, .isBootVolume = volume.isBoot});
    return look;
}

std::string VolumeLook::kind() const {
    if (volume.isBoot) return "start-up disk";
    return isCard ? "card" : "disk";
}

std::vector<Volume> volumesMeant(const std::vector<Volume>& volumes, const std::string& given) {
    std::error_code failure;
    const std::filesystem::path place = std::filesystem::weakly_canonical(given, failure);
    std::vector<Volume> meant;
    for (const Volume& volume : volumes) {
        const bool isThere = given.contains('/') && !failure && place == volume.path;
        if (isThere || volume.name == given) meant.push_back(volume);
    }
    return meant;
}

}  // namespace vark::app
