#include "VarkCore/Transfer/Cards/VolumeRules.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

/// Each of these alone is enough.
constexpr std::array<std::string_view, 4> foldersOfCards = {"dcim", "xdroot", "bpav", "cliproot"};
/// These are, beside "private".
constexpr std::array<std::string_view, 3> besidePrivate = {"avchd", "mp_root", "clip"};

}  // namespace

bool VolumeRules::isCard(const std::vector<std::string>& topLevelNames) {
    std::vector<std::string> names;
    names.reserve(topLevelNames.size());
    for (const std::string& name : topLevelNames)
        names.push_back(lowercased(name));
    const auto isThere = [&](std::string_view name) { return std::ranges::count(names, name) > 0; };
    return std::ranges::any_of(foldersOfCards, isThere) ||
           (isThere("private") && std::ranges::any_of(besidePrivate, isThere));
}

VolumeRules::Offer VolumeRules::offer(const Seen& seen) {
    if (seen.isBootVolume || !seen.isEjectableOrRemovable) return Offer::silent;
    if (seen.remembered == Answer::never) return Offer::silent;
    return seen.isCard ? Offer::sheet : Offer::notify;
}

}  // namespace vark
