#include "Hosts/Common/ProfileBundle.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>

#include "VarkApp/Failure.h"

namespace vark::host {

namespace {

constexpr std::size_t longestName = 32;
/// What names the folder that our processes share.
constexpr std::string_view groupKey = "VARKAppGroup";

bool isNamePart(char letter) {
    return (letter >= 'a' && letter <= 'z') || (letter >= '0' && letter <= '9') || letter == '-';
}

}  // namespace

std::optional<std::string> ProfileBundle::identifier() const {
    const std::optional<std::string> whole = whole_->identifier();
    return whole ? std::optional(fmt::format("{}.profile.{}", *whole, profile_)) : std::nullopt;
}

std::optional<std::string> ProfileBundle::infoText(std::string_view key) const {
    std::optional<std::string> whole = whole_->infoText(key);
    if (key == groupKey && whole && !whole->empty()) return fmt::format("{}.profile.{}", *whole, profile_);
    return whole;
}

std::string ProfileBundle::profileOfEnvironment() {
    const char* value = std::getenv("VARK_PROFILE");
    const std::string profile = value != nullptr ? value : "";
    if (profile.size() > longestName || !std::ranges::all_of(profile, isNamePart))
        throw app::Failure(
            app::Outcome::misuse,
            "VARK_PROFILE is to be a short name of small letters, digits and \"-\", like work.");
    return profile;
}

}  // namespace vark::host
