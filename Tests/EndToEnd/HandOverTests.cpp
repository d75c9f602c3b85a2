// Who has the queue: each way in which one process takes it on for another, with real processes that are
// killed.

#include "Tests/EndToEnd/EndToEndTest.h"
#include "Tests/Support/Programs.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::test {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;

/// In which a follower has the queue; where sanitizers slow it down, on a machine that may be busy, only that
/// it does not wait for a look-again.
std::chrono::seconds soonEnough() {
    return Programs::get().sanitizers().empty() ? 1s : 10s;
}

/// Beside `vark run`, or a `vark send` of a file that takes long.
class HandOver : public EndToEndTest {
  protected:
    enum class Holder { run, terminal };

    /// A terminal only first: that it sends shows in the first piece that the box has ever had.
    Process hold(Holder holder) {
        if (holder == Holder::terminal) return sendSlowly(file("Large.mov", 32 * chunkSize), "1MB");
        Process running = vark.start({"run"});
        EXPECT_TRUE(running.untilWritten("Sending to"));
        return running;
    }
};

TEST_F(HandOver, WhoeverHasTheQueueTakesOnWhatIsSentAndItIsFollowedToItsEnd) {
    for (const Holder holder : {Holder::terminal, Holder::run}) {
        SCOPED_TRACE(holder == Holder::run ? "vark run" : "a terminal");
        Process holding = hold(holder);
        const SampleFile small = file(holder == Holder::run ? "A.mov" : "B.mov", 2 * chunkSize);
        const Finished following = send(small);
        expectHeld(small);
        expectExit(following, 0);
        EXPECT_THAT(following.output, HasSubstr("1 file landed and checked"));

        const SampleFile refused = file("R" + small.relativePath, 1000);
        const Finished paced = send(refused, {"--rate", "1MB"});
        expectExit(paced, 2);
        EXPECT_THAT(paced.errors, HasSubstr("Leave out --rate"));

        expectExit(send(refused, {"--hand-over"}), 5);
        expectExit(vark.run({"send"}), 0);
        expectHeld(refused);
        if (holder == Holder::run) holding.signal(SIGTERM);
        EXPECT_EQ(holding.wait(), exitCode(0)) << holding.errors();
        expectExit(vark.run({"clear"}), 0);
    }
}

TEST_F(HandOver, AFollowerHasTheQueueWithinASecondOfTheHoldersEnd) {
    for (const Holder holder : {Holder::terminal, Holder::run}) {
        SCOPED_TRACE(holder == Holder::run ? "vark run" : "a terminal");
        Process holding = hold(holder);
        fault(R"({"kind": "latency", "path_contains": "/u/", "ms": 1000})");
        const SampleFile followed = file(holder == Holder::run ? "A.mov" : "B.mov", 8 * chunkSize);
        Process following = startSend(followed);
        ASSERT_TRUE(vark.untilDiary("Added " + followed.relativePath, following));
        ASSERT_TRUE(following.untilWritten("followed to its end here"));
        holding.kill();
        const auto killed = std::chrono::steady_clock::now();
        ASSERT_TRUE(following.untilWritten("Carrying on here."));
        EXPECT_LT(std::chrono::steady_clock::now() - killed, soonEnough());
        EXPECT_EQ(following.wait(), exitCode(0)) << following.output() << following.errors();
        expectHeld(followed);
    }
}

TEST_F(HandOver, AFollowerThatEndsTakesNothingWithIt) {
    Process running = hold(Holder::run);
    const SampleFile killed = file("Killed.mov", 8 * chunkSize);
    const SampleFile stopped = file("Stopped.mov", 8 * chunkSize);
    fault(R"({"kind": "latency", "path_contains": "/u/", "ms": 1000})");
    Process first = startSend(killed);
    Process second = startSend(stopped);
    ASSERT_TRUE(first.untilWritten("followed to its end here"));
    ASSERT_TRUE(second.untilWritten("followed to its end here"));
    first.kill();
    second.signal(SIGINT);
    EXPECT_EQ(second.wait(), exitCode(130));
    EXPECT_THAT(second.errors(), HasSubstr("Vark goes on sending."));
    expectExit(vark.run({"send"}), 0);
    expectHeld(killed);
    expectHeld(stopped);
    EXPECT_FALSE(running.hasEnded());
}

TEST_F(HandOver, WithoutAConnectionRequestsAreCarriedOutOnTheSavedQueueAndANewRecordIsTakenUp) {
    const SampleFile take = file("Take.mov", 1000);
    fault(R"({"kind": "status", "path": "/api/upload/begin", "status": 403, "count": 1})");
    expectExit(send(take), 1);
    expectExit(vark.run({"disconnect"}), 0);
    Process running = vark.start({"run"});
    ASSERT_TRUE(running.untilWritten("Not connected to a vark."));
    EXPECT_THAT(vark.run({"retry"}).output, HasSubstr("Trying 1 file again"));
    vark.connect(box);
    expectExit(vark.run({"send"}), 0);
    expectHeld(take);
}

}  // namespace
}  // namespace vark::test
