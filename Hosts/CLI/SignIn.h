#pragma once

#include "Hosts/CLI/Surroundings.h"
#include "VarkCore/API/DeviceSignIn.h"

namespace vark::cli {

// How this machine gets its token. Each fails with a `CommandError`, and with `VarkAPIError` when the vark
// could not be used.

/// With a code that the person has read off the portal.
DeviceClaim signInWithCode(Surroundings& surroundings, VarkAPI& api, const std::string& code);

/// In the browser: shows the address, has the desktop open it, and waits for the person's answer there.
DeviceClaim signInInBrowser(Surroundings& surroundings, VarkAPI& api, const URL& server);

}  // namespace vark::cli
