#pragma once

#include "VarkCore/API/VarkAPI.h"
#include "VarkCore/SignIn/SignInPoller.h"

namespace vark {

/// Polls the vark, as often as it wants to be, until the person has answered in the browser or time is up;
/// never gives `Waiting`. Fails with `VarkAPIError` for all but a network that comes and goes. `api` outlives
/// the task.
Task<SignInPoller::State> awaitSignIn(VarkAPI& api, DeviceBegin begun);

}  // namespace vark
