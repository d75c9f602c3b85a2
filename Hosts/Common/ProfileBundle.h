#pragma once

#include <memory>
#include <string>

#include "VarkCore/Services/Bundle.h"

namespace vark::host {

/// A bundle as one profile of a person sees it: under names of its own, so that its folders, its connection
/// and its token are kept apart from those of all others.
class ProfileBundle final : public Bundle {
  public:
    ProfileBundle(std::unique_ptr<Bundle> whole, std::string profile)
        : whole_(std::move(whole)), profile_(std::move(profile)) {}

    std::optional<std::string> identifier() const override;
    std::optional<std::string> infoText(std::string_view key) const override;

    /// The profile that the environment names with VARK_PROFILE; empty for none. Fails with an `app::Failure`
    /// for one that can be no part of a name.
    static std::string profileOfEnvironment();

  private:
    const std::unique_ptr<Bundle> whole_;
    const std::string profile_;
};

}  // namespace vark::host
