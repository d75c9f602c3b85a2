#include <gtest/gtest.h>

#include "Tests/Support/Fakes/ScriptedSession.h"
#include "Tests/Support/TestLoop.h"
#include "VarkReplica/Reachability.h"

namespace vark::test {
namespace {

using namespace std::chrono_literals;
using State = Reachability::State;

class ReachabilityTest : public testing::Test {
  protected:
    ReachabilityTest() {
        reachability.setBack([this] { ++back; });
    }
    static HTTPRequest request() { return {"GET", URL::parse("https://vark.test").value(), {}, {}}; }
    TaskHandle<HTTPResponse> call() { return loop.start(session.data(request())); }
    std::size_t made() const { return scripted->requests.size(); }

    TestLoop loop;
    Reachability reachability{loop.clock};
    std::shared_ptr<ScriptedSession> scripted = std::make_shared<ScriptedSession>(loop.pool);
    WatchedSession session{scripted, reachability};
    int back = 0;
};

TEST_F(ReachabilityTest, SilenceCostsOneWaitAndThenOneTryInFiveSeconds) {
    scripted->queue(hanging());
    const TaskHandle<HTTPResponse> first = call();
    loop.advance(4999ms);
    EXPECT_EQ(reachability.state(), State::answers);
    loop.advance(1ms);
    EXPECT_EQ(reachability.state(), State::silent);
    EXPECT_FALSE(first.done());

    for (int time = 0; time < 3; ++time)
        EXPECT_THROW(loop.run(session.data(request())), HTTPError);
    EXPECT_EQ(made(), 1U);
    loop.advance(5s);
    scripted->queue(failure(HTTPError::cannotConnect));
    EXPECT_THROW(loop.run(session.data(request())), HTTPError);
    EXPECT_THROW(loop.run(session.data(request())), HTTPError);
    EXPECT_EQ(made(), 2U);
    EXPECT_EQ(reachability.since(), Instant{} + 5s);

    loop.advance(5s);
    scripted->queue(500);
    EXPECT_EQ(loop.run(session.data(request())).status, 500);
    EXPECT_EQ(reachability.state(), State::answers);
    EXPECT_EQ(back, 1);
    scripted->queue(200);
    EXPECT_EQ(loop.run(session.data(request())).status, 200);
}

TEST_F(ReachabilityTest, WithoutANetworkNothingIsTriedUntilItIsBack) {
    reachability.pathChanged(false);
    loop.advance(1h);
    EXPECT_THROW(loop.run(session.data(request())), HTTPError);
    reachability.metSilence();
    EXPECT_EQ(reachability.state(), State::noWay);
    EXPECT_EQ(made(), 0U);
    reachability.pathChanged(true);
    EXPECT_EQ(back, 1);
    scripted->queue(200);
    EXPECT_EQ(loop.run(session.data(request())).status, 200);
}

TEST_F(ReachabilityTest, EachEndSaysWhatItSays) {
    struct Case {
        ScriptedAnswer answer;
        State state;
    };
    const Case cases[] = {
        {answer(200), State::answers},
        {answer(404), State::answers},
        {answer(401), State::signedOut},
        {failure(HTTPError::timedOut), State::silent},
        {failure(HTTPError::cannotFindHost), State::silent},
        {failure(HTTPError::untrusted), State::answers},
    };
    for (const Case& each : cases) {
        reachability.pathChanged(false);
        reachability.pathChanged(true);
        scripted->queue(each.answer);
        const TaskHandle<HTTPResponse> ended = call();
        loop.settle();
        EXPECT_EQ(reachability.state(), each.state) << each.answer.response.status;
    }
    // A call that is given up says nothing.
    reachability.pathChanged(false);
    reachability.pathChanged(true);
    scripted->queue(hanging());
    const TaskHandle<HTTPResponse> given = call();
    loop.settle();
    given.cancel();
    loop.advance(10s);
    EXPECT_TRUE(given.done());
    EXPECT_EQ(reachability.state(), State::answers);
}

}  // namespace
}  // namespace vark::test
