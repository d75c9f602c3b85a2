#include "VarkApp/Connect/SigningIn.h"

#include <fmt/format.h>

#include "VarkApp/Connect/Addresses.h"
#include "VarkCore/Foundation/Overloaded.h"
#include "VarkCore/Foundation/Sentence.h"
#include "VarkCore/SignIn/BrowserSignIn.h"

namespace vark::app {

namespace {

/// The page to open. An address that is none of the web could make the desktop start anything.
URL pageOf(const DeviceBegin& begun, const URL& server) {
    std::optional<URL> page = server.resolving(begun.url);
    if (page && isSafeAddress(*page)) return *page;
    throw Failure(Outcome::failed,
                  {"The vark gave an address for signing in that is no safe web page, so it is not opened.",
                   {{Next::Step::useACode}}});
}

DeviceClaim claimOf(const SignInPoller::State& end) {
    using State = SignInPoller::State;
    constexpr Outcome outcome = Outcome::notConnected;
    return std::visit(
        Overloaded{
            [](const State::Connected& connected) { return connected.claim; },
            [](const State::Refused&) -> DeviceClaim {
                throw Failure(outcome, "The sign-in was refused in the browser. Nothing is connected.");
            },
            [](const auto&) -> DeviceClaim {
                throw Failure(outcome,
                              "Nobody answered in the browser in time. Nothing is connected; try again.");
            },
        },
        end.which());
}

}  // namespace

Task<DeviceClaim> signInWithCode(Surroundings& surroundings, VarkAPI& api, std::string code) {
    try {
        co_return co_await api.claim(std::move(code), surroundings.platform.machineName());
    } catch (const VarkAPIError& error) {
        // A vark that is busy has not looked at the code: it is still good.
        const bool isAnswer = std::holds_alternative<VarkAPIError::Server>(error.which());
        const bool isRefusal = (isAnswer && !error.isRetryable()) || error.isSignOut();
        if (!isRefusal) throw;
        throw Failure(Outcome::notConnected,
                      fmt::format("The vark did not accept the code: {} Try again with a new code.",
                                  asSentence(error.errorDescription())));
    }
}

Task<DeviceClaim> signInInBrowser(Surroundings& surroundings, VarkAPI& api, URL server, SignInPage& shown) {
    DeviceBegin begun = co_await api.beginDeviceSignIn(surroundings.platform.machineName());
    const URL page = pageOf(begun, server);
    shown.show(page);
    shown.waiting(surroundings.platform.openInBrowser(page.text()));
    const SignInPoller::State end = co_await awaitSignIn(api, std::move(begun));
    co_return claimOf(end);
}

}  // namespace vark::app
