#include "VarkCore/SignIn/BrowserSignIn.h"

#include <gtest/gtest.h>

#include <deque>

#include "Tests/Support/Fakes/SilentVark.h"
#include "Tests/Support/TestLoop.h"

namespace vark {
namespace {

using State = SignInPoller::State;
using Poll = DevicePoll;

const DeviceClaim claim{"t0k", "Acme", "anna@acme.example"};

/// A vark that answers polls as the test says, and remembers when the last came.
class PolledVark : public test::SilentVark {
  public:
    std::deque<Poll> answers;
    double lastPoll = 0;

    Task<Poll> pollDeviceSignIn(std::string nonce) override {
        EXPECT_EQ(nonce, "n1");
        const Clock* clock = co_await thisClock();
        lastPoll = inSeconds(clock->now().time_since_epoch());
        if (answers.empty()) throw VarkAPIError::server(500);
        const Poll answer = answers.front();
        answers.pop_front();
        co_return answer;
    }
};

TEST(BrowserSignIn, PollsAsItIsToldUntilThereIsAnAnswer) {
    struct Case {
        const char* name;
        std::deque<Poll> answers;
        double promised;
        State state;
        double lastPoll;
    };
    const Poll waits = Poll::Unreachable{};
    const Poll agreed = Poll::Connected{claim, "tower"};
    std::deque<Poll> late(12, waits);
    late.push_back(agreed);
    const Case cases[] = {
        {"slows down", {waits, Poll::SlowDown{}, Poll::Pending{}, agreed}, 600, State::Connected{claim}, 5},
        {"refused", {Poll::Refused{}}, 600, State::Refused{}, 0},
        {"expired", {Poll::Expired{}}, 600, State::Expired{}, 0},
        {"gives five seconds more than were promised", std::deque<Poll>(99, waits), 6, State::Expired{}, 11},
        {"gives ten seconds to anybody", std::deque<Poll>(99, waits), 0, State::Expired{}, 10},
        {"an answer counts before the clock", late, 7, State::Connected{claim}, 12},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        test::TestLoop loop;
        PolledVark vark;
        vark.answers = c.answers;
        EXPECT_EQ(loop.run(awaitSignIn(vark, {"n1", "", c.promised})), c.state);
        EXPECT_EQ(vark.lastPoll, c.lastPoll);
    }
    test::TestLoop loop;
    PolledVark vark;
    EXPECT_THROW(loop.run(awaitSignIn(vark, {"n1", "", 7})), VarkAPIError);
}

}  // namespace
}  // namespace vark
