#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vark {

/// What the running program says about itself. Owned by the host; any thread may ask.
class Bundle {
  public:
    virtual ~Bundle() = default;

    /// "dev.vark.mac"; nothing for a program that runs outside a bundle.
    virtual std::optional<std::string> identifier() const = 0;
    /// The value of a key in the bundle's Info.plist, if it is a text.
    virtual std::optional<std::string> infoText(std::string_view key) const = 0;
};

}  // namespace vark
