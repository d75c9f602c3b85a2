#pragma once

#include "VarkApp/Surroundings.h"
#include "VarkCore/API/Messages/DeviceSignIn.h"

namespace vark::app {

/// Whoever shows a person the way to sign in with the browser.
class SignInPage {
  public:
    virtual ~SignInPage() = default;
    /// At this address the person says yes.
    virtual void show(const URL& page) = 0;
    /// From here on their answer is waited for; whether the desktop was asked to show the page.
    virtual void waiting(bool browserWasAsked) = 0;
};

// How this machine gets its token. Each fails with a `Failure`, and with `VarkAPIError` when the vark could
// not be used. What is passed by reference outlives the task.

/// With a code that the person has read off the portal.
Task<DeviceClaim> signInWithCode(Surroundings& surroundings, VarkAPI& api, std::string code);

/// In the browser: shows the address, has the desktop open it, and waits for the person's answer there.
Task<DeviceClaim> signInInBrowser(Surroundings& surroundings, VarkAPI& api, URL server, SignInPage& shown);

}  // namespace vark::app
