#pragma once

#include <gtest/gtest.h>

#include "Tests/Support/Fakes/FakeDialer.h"
#include "Tests/Support/Fakes/ScriptedSession.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/API/HTTPVarkAPI.h"

namespace vark::test {

/// A client of a vark whose answers the test writes, and of nodes when the test puts some into `lan`. Give it
/// another pool for its writers where the vark leaves more than a pipe holds unread.
class APIWorld : public testing::Test {
  public:
    TestLoop loop;
    ScriptedSession session{loop.pool};
    FakeDialer dialer;
    std::optional<std::string> token = "t0ken";
    Date now{1000};
    LANRouter lan;
    WaysTaken ways;
    LANTransfer nodes{dialer, loop.pool, [this] { return now; }};
    HTTPVarkAPI api = client(loop.pool);

    HTTPVarkAPI client(BlockingPool& writers) {
        const HTTPVarkAPI::Host host{.makeSession =
                                         [this](HTTPSessionSettings settings) {
                                             session.settings = std::move(settings);
                                             return std::shared_ptr<HTTPSession>(std::shared_ptr<void>(),
                                                                                 &session);
                                         },
                                     .via = "Finder",
                                     .authorityFile = "/tmp/authority.pem",
                                     .lan = lan,
                                     .nodes = nodes,
                                     .writers = writers,
                                     .executor = loop.executor,
                                     .clock = loop.clock,
                                     .now = [this] { return now; },
                                     .ways = &ways};
        return HTTPVarkAPI(host, *URL::parse("https://vark.example/portal/"), [this] { return token; });
    }

    /// Nothing when the task succeeds.
    template <class T>
    std::optional<VarkAPIError> failureOf(Task<T> task) {
        try {
            loop.run(std::move(task));
            return std::nullopt;
        } catch (const VarkAPIError& error) {
            return error;
        }
    }

    void TearDown() override { loop.scope.endAll(); }
};

/// Empty when the request has no such header.
inline std::string headerOf(const HTTPRequest& request, std::string_view name) {
    for (const HTTPHeader& header : request.headers) {
        if (header.name == name) return header.value;
    }
    return "";
}

}  // namespace vark::test

namespace vark {

inline void PrintTo(const VarkAPIError& error, std::ostream* stream) {
    *stream << "case " << error.which().index() << ": " << error.errorDescription();
}

}  // namespace vark
