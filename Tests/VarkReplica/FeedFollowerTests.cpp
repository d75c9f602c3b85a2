#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/VarkReplica/FollowingWorld.h"

namespace vark::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

using namespace std::chrono_literals;

class FeedFollowerTest : public testing::Test, protected FollowingWorld {
  protected:
    /// How long it takes from here to the next question of the feed.
    Duration untilNext() {
        const Instant begin = loop.clock.now();
        EXPECT_LE(vark.taken().size(), 1U);
        while (vark.calls.empty())
            loop.advance(1s);
        return loop.clock.now() - begin;
    }
};

TEST_F(FeedFollowerTest, PagesFollowAtOnceAndEachMovesThePlace) {
    follow();
    EXPECT_EQ(replica().anchor(), "0");
    vark.set("1=f/ 2=n2@1 3=n3@1 4=n4@1 5=n5@1 6=n6@1 7=n7@1");
    vark.remove(3);
    vark.taken();
    untilNext();
    EXPECT_THAT(vark.taken(), ElementsAre("changes from 0", "changes from 4", "changes from 7"));
    EXPECT_EQ(shown(), "f/ f/n2 f/n4 f/n5 f/n6 f/n7");
    EXPECT_EQ(replica().anchor(), "8");
    EXPECT_THAT(told, IsEmpty());
    replica().markListed(ino(1), Asked{});
    vark.set("2=renamed@1");
    untilNext();
    EXPECT_THAT(told, testing::UnorderedElementsAre(EntryNews{ino(1), "n2"}, EntryNews{ino(1), "renamed"},
                                                    InodeNews{ino(1)}));
}

TEST_F(FeedFollowerTest, PaceIsThatOfUseAndOfFailures) {
    follow();
    vark.taken();
    for (int time = 0; time < 12; ++time)
        EXPECT_EQ(untilNext(), 5s);
    EXPECT_EQ(untilNext(), 30s);
    EXPECT_EQ(untilNext(), 30s);
    vark.taken();
    loop.advance(20s);
    EXPECT_THAT(vark.calls, IsEmpty());
    follower().used();
    loop.advance(0s);
    EXPECT_EQ(untilNext(), 5s);
    vark.failures["changes"] = std::deque(6, VarkAPIError::server(400));
    const std::optional<std::string> place = replica().anchor();
    EXPECT_EQ(untilNext(), 5s);
    for (const Duration pause : {5s, 10s, 20s, 40s, 60s, 60s})
        EXPECT_EQ(untilNext(), pause);
    EXPECT_EQ(untilNext(), 30s);
    EXPECT_EQ(replica().anchor(), place);
}

TEST_F(FeedFollowerTest, NewReplicaTakesThePlaceOfTheMomentWhenTheVarkIsSilent) {
    vark.failures["changes"] = std::deque(3, VarkAPIError::transport("No network."));
    follow();
    run(follower().hasPlace());
    EXPECT_THAT(*replica().anchor(), testing::StartsWith("pending:"));
}

TEST_F(FeedFollowerTest, WhatIsDoubtedGoesOnlyWhenTheComparisonPasses) {
    struct {
        const char* what;
        const char* there;
        std::deque<VarkAPIError> failures;
        const char* shown;
        /// Whether it is asked about again soon; else after an hour.
        bool isTriedSoon;
    } const doubts[] = {
        {"one in six", "2=b 3=c 4=d 5=e 6=f", {}, "b c d e f", false},
        {"more than a fifth", "3=c 4=d 5=e 6=f", {}, "a b c d e f", false},
        {"one cannot be said", "1=a 3=c 4=d 5=e 6=f", {VarkAPIError::server(500)}, "a b c d e f", true},
    };
    for (const auto& doubt : doubts) {
        SCOPED_TRACE(doubt.what);
        FollowingWorld world;
        world.follow();
        world.learn("1=a 2=b 3=c 4=d 5=e 6=f");
        world.vark.setInSecret(doubt.there);
        world.vark.failures["item"] = doubt.failures;
        world.replica().markListed(rootIno, world.replica().ask());
        world.loop.advance(5s);
        EXPECT_EQ(world.shown(), doubt.shown);
        world.vark.taken();
        world.loop.advance(1min);
        EXPECT_EQ(std::ranges::count(world.vark.calls, "item 1") > 0, doubt.isTriedSoon);
        // However it went on, what the vark has again is no longer doubted.
        world.vark.setInSecret("1=a 2=b");
        world.loop.advance(1h);
        EXPECT_THAT(world.asked(), IsEmpty());
    }
}

TEST_F(FeedFollowerTest, WhoeverStoodInTheWayComesBackUnderItsNewName) {
    follow();
    vark.setInSecret("1=b");
    learn("1=a");
    learn("2=a");
    EXPECT_EQ(shown(), "a");
    loop.advance(5s);
    EXPECT_THAT(vark.calls, Contains("item 1"));
    EXPECT_EQ(shown(), "a b");
}

}  // namespace
}  // namespace vark::test
