#include "VarkCore/SignIn/SignInPoller.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>

#include "Tests/Support/SilentVark.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/SignIn/BrowserSignIn.h"

namespace vark {
namespace {

using State = SignInPoller::State;
using testing::ElementsAre;
using Poll = DevicePoll;

const DeviceClaim claim{"t0k", "Acme", "anna@acme.example"};

TEST(SignInPoller, GivesTheVarkFiveSecondsMoreThanItPromised) {
    for (const auto& [promised, deadline] :
         std::vector<std::pair<double, double>>{{0, 10}, {5, 10}, {6, 11}, {600, 605}}) {
        const SignInPoller poller(promised);
        EXPECT_EQ(poller.deadline(), deadline) << promised;
    }
}

TEST(SignInPoller, AnAnswerCountsBeforeTheClock) {
    struct Case {
        Poll answer;
        double elapsed;
        State state;
        std::optional<double> wait;
    };
    const Case cases[] = {
        {Poll::Connected{claim, "tower"}, 1, State::Connected{claim}, std::nullopt},
        {Poll::Connected{claim, std::nullopt}, 900, State::Connected{claim}, std::nullopt},
        {Poll::Refused{}, 1, State::Refused{}, std::nullopt},
        {Poll::Expired{}, 1, State::Expired{}, std::nullopt},
        {Poll::Pending{}, 9.9, State::Waiting{}, 1},
        {Poll::Pending{}, 10, State::Expired{}, std::nullopt},
        {Poll::Unreachable{}, 9.9, State::Waiting{}, 1},
        {Poll::SlowDown{}, 9.9, State::Waiting{}, 2},
        {Poll::SlowDown{}, 10, State::Expired{}, std::nullopt},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(testing::Message() << each.answer.which().index() << " after " << each.elapsed);
        SignInPoller poller(0);
        EXPECT_EQ(poller.step(each.answer, each.elapsed), each.wait);
        EXPECT_EQ(poller.state(), each.state);
        if (each.wait) continue;
        // What has ended stays as it is and counts nothing.
        EXPECT_EQ(poller.step(Poll::Connected{}, 0), std::nullopt);
        EXPECT_EQ(poller.state(), each.state);
        EXPECT_EQ(poller.polls(), 1);
    }
}

TEST(SignInPoller, SlowsDownOnceAndForGood) {
    SignInPoller poller(600);
    std::vector<std::optional<double>> waits;
    for (const Poll& answer :
         {Poll(Poll::Pending{}), Poll(Poll::SlowDown{}), Poll(Poll::Pending{}), Poll(Poll::SlowDown{})})
        waits.push_back(poller.step(answer, 1));
    EXPECT_THAT(waits, ElementsAre(1, 2, 2, 2));
}

/// A vark that answers polls as the test says, and remembers when each came.
class PolledVark : public test::SilentVark {
  public:
    explicit PolledVark(const Clock& clock) : clock_(clock) {}
    std::deque<Poll> answers;
    std::vector<double> seen;

    Task<Poll> pollDeviceSignIn(std::string nonce) override {
        EXPECT_EQ(nonce, "n1");
        seen.push_back(inSeconds(clock_.now().time_since_epoch()));
        if (answers.empty()) throw VarkAPIError::server(500);
        const Poll answer = answers.front();
        answers.pop_front();
        co_return answer;
    }

  private:
    const Clock& clock_;
};

TEST(BrowserSignIn, PollsAsItIsToldUntilThereIsAnAnswer) {
    test::TestLoop loop;
    PolledVark vark(loop.clock);
    vark.answers = {Poll::Pending{}, Poll::SlowDown{}, Poll::Pending{}, Poll::Connected{claim, {}}};
    EXPECT_EQ(loop.run(awaitSignIn(vark, {"n1", "", 600})), State(State::Connected{claim}));
    EXPECT_THAT(vark.seen, ElementsAre(0, 1, 3, 5));
}

TEST(BrowserSignIn, OutlivesANetworkThatIsAwayForTwentySeconds) {
    test::TestLoop loop;
    PolledVark vark(loop.clock);
    vark.answers = std::deque<Poll>(20, Poll::Unreachable{});
    vark.answers.emplace_back(Poll::Connected{claim, {}});
    EXPECT_EQ(loop.run(awaitSignIn(vark, {"n1", "", 60})), State(State::Connected{claim}));
    EXPECT_EQ(vark.seen.back(), 20);
}

TEST(BrowserSignIn, EndsWhenTimeIsUpAndWithWhatTheVarkFails) {
    test::TestLoop loop;
    PolledVark vark(loop.clock);
    vark.answers = std::deque<Poll>(100, Poll::Unreachable{});
    EXPECT_EQ(loop.run(awaitSignIn(vark, {"n1", "", 7})), State(State::Expired{}));
    EXPECT_EQ(vark.seen.back(), 12);
    vark.answers = {Poll::Pending{}};
    EXPECT_THROW(loop.run(awaitSignIn(vark, {"n1", "", 7})), VarkAPIError);
}

}  // namespace
}  // namespace vark
