#pragma once

#include "Tests/Support/Fakes/FakeDialer.h"
#include "Tests/Support/Fakes/ScriptedSession.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/API/HTTPVarkAPI.h"

namespace vark::test {

/// A client of a vark whose answers the test writes, and of nodes when the test puts some into `lan`. Give it
/// another pool for its writers where the vark leaves more than a pipe holds unread.
struct ScriptedAPI {
    TestLoop loop;
    ScriptedSession session{loop.pool};
    FakeDialer dialer;
    std::optional<std::string> token = "t0ken";
    Date now{1000};
    LANRouter lan;
    LANTransfer nodes{dialer, loop.pool, [this] { return now; }};
    HTTPVarkAPI api = client(loop.pool);

    HTTPVarkAPI client(BlockingPool& writers) {
        const auto makeSession = [this](HTTPSessionSettings settings) {
            session.settings = std::move(settings);
            return std::shared_ptr<HTTPSession>(std::shared_ptr<void>(), &session);
        };
        const HTTPVarkAPI::Host host{.makeSession = makeSession,
                                     .via = "Finder",
                                     .authorityFile = "/tmp/authority.pem",
                                     .lan = lan,
                                     .nodes = nodes,
                                     .writers = writers,
                                     .executor = loop.executor,
                                     .clock = loop.clock,
                                     .now = [this] { return now; }};
        return HTTPVarkAPI(host, *URL::parse("https://vark.example/portal/"), [this] { return token; });
    }
};

}  // namespace vark::test
