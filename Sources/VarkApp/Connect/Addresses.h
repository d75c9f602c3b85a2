#pragma once

#include <string>
#include <string_view>

#include "VarkCore/Foundation/URL.h"

namespace vark::app {

/// The address of a vark as a person gives it, without a slash at its end. Fails with a `Failure`.
URL varkAddress(const std::string& given);

/// Whether a token or a person's answer may go to the address: all of https, and this machine itself.
bool isSafeAddress(const URL& url);
/// Whether the text can be a device token: not empty, plain characters without blanks.
bool isToken(std::string_view text);

/// `below` under `root`; either may be empty.
std::string joinedVarkPath(std::string_view root, std::string_view below);

}  // namespace vark::app
