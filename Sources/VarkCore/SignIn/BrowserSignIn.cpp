#include "VarkCore/SignIn/BrowserSignIn.h"

#include "VarkCore/Concurrency/Clock.h"

namespace vark {

Task<SignInPoller::State> awaitSignIn(VarkAPI& api, DeviceBegin begun) {
    Clock* clock = co_await thisClock();
    const Instant start = clock->now();
    SignInPoller poller(begun.expiresIn);
    while (true) {
        const DevicePoll answer = co_await api.pollDeviceSignIn(begun.nonce);
        const std::optional<double> wait = poller.step(answer, inSeconds(clock->now() - start));
        if (!wait) co_return poller.state();
        co_await sleepFor(seconds(*wait));
    }
}

}  // namespace vark
