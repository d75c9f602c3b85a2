#include "Hosts/CLI/SignIn.h"

#include <fmt/format.h>

#include "Hosts/CLI/Arguments.h"
#include "VarkCore/Foundation/Overloaded.h"
#include "VarkCore/Foundation/Sentence.h"
#include "VarkCore/SignIn/BrowserSignIn.h"

namespace vark::cli {

namespace {

/// The page to open. An address that is none of the web could make the desktop start anything.
URL pageOf(const DeviceBegin& begun, const URL& server) {
    std::optional<URL> page = server.resolving(begun.url);
    if (page && isSafeAddress(*page)) return *page;
    throw CommandError(ExitCode::somethingFailed,
                       "The vark gave an address for signing in that is no safe web page, so it is not "
                       "opened. Sign in with a code from the portal: vark connect URL --code CODE");
}

DeviceClaim claimOf(const SignInPoller::State& end) {
    using State = SignInPoller::State;
    constexpr ExitCode code = ExitCode::notConnected;
    return std::visit(
        Overloaded{
            [](const State::Connected& connected) { return connected.claim; },
            [](const State::Refused&) -> DeviceClaim {
                throw CommandError(code, "The sign-in was refused in the browser. Nothing is connected.");
            },
            [](const auto&) -> DeviceClaim {
                throw CommandError(
                    code, "Nobody answered in the browser in time. Nothing is connected; try again.");
            },
        },
        end.which());
}

}  // namespace

DeviceClaim signInWithCode(Surroundings& surroundings, VarkAPI& api, const std::string& code) {
    try {
        return surroundings.await(api.claim(code, surroundings.platform.machineName()));
    } catch (const VarkAPIError& error) {
        // A vark that is busy has not looked at the code: it is still good.
        const bool isAnswer = std::holds_alternative<VarkAPIError::Server>(error.which());
        const bool isRefusal = (isAnswer && !error.isRetryable()) || error.isSignOut();
        if (!isRefusal) throw;
        throw CommandError(ExitCode::notConnected,
                           fmt::format("The vark did not accept the code: {} Try again with a new code.",
                                       asSentence(error.errorDescription())));
    }
}

DeviceClaim signInInBrowser(Surroundings& surroundings, VarkAPI& api, const URL& server) {
    const DeviceBegin begun = surroundings.await(api.beginDeviceSignIn(surroundings.platform.machineName()));
    const URL page = pageOf(begun, server);
    Console& console = surroundings.console;
    console.say("To connect this machine, say yes at this address:");
    console.say(page.text());
    if (surroundings.platform.openInBrowser(page.text())) console.say("The browser is asked to show it.");
    console.say("Waiting for the answer...");
    return claimOf(surroundings.await(awaitSignIn(api, begun)));
}

}  // namespace vark::cli
