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
    vark.set(folder(1, topID, "f"));
    for (int number = 2; number <= 7; ++number)
        vark.set(file(number, 1, fmt::format("n{}", number)));
    vark.remove(3);
    vark.taken();
    untilNext();
    EXPECT_THAT(vark.taken(), ElementsAre("changes from 0", "changes from 4", "changes from 7"));
    EXPECT_THAT(shown(), ElementsAre("f/", "f/n2", "f/n4", "f/n5", "f/n6", "f/n7"));
    EXPECT_EQ(replica().anchor(), "8");
    EXPECT_THAT(told, IsEmpty());
    replica().markListed(ino(1), Asked{});
    vark.set(file(2, 1, "renamed"));
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
    loop.advance(20s);
    EXPECT_THAT(vark.taken(), IsEmpty());
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

struct Doubt {
    const char* what;
    /// Of six files, those that the vark does not have any more, and the failures of the first answers.
    int gone;
    std::deque<VarkAPIError> failures;
    std::size_t left;
    /// Whether it is asked about again soon; else after an hour.
    bool isTriedSoon;
};

TEST_F(FeedFollowerTest, WhatIsDoubtedGoesOnlyWhenTheComparisonPasses) {
    const Doubt doubts[] = {
        {"one in six", 1, {}, 5, false},
        {"more than a fifth", 2, {}, 6, false},
        {"one cannot be said", 1, {VarkAPIError::server(500)}, 6, true},
    };
    for (const Doubt& doubt : doubts) {
        SCOPED_TRACE(doubt.what);
        FollowingWorld world;
        world.follow();
        std::vector<VarkItem> items;
        for (int number = 1; number <= 6; ++number) {
            items.push_back(file(number, topID, fmt::format("n{}", number)));
            if (number > doubt.gone) world.vark.setInSecret(items.back());
        }
        world.learn(items);
        world.vark.failures["item"] = doubt.failures;
        world.replica().markListed(rootIno, world.replica().ask());
        world.loop.advance(5s);
        EXPECT_EQ(world.shown().size(), doubt.left);
        // Who is there was confirmed all the same.
        EXPECT_LE(world.asked().size(), 2U);
        world.vark.taken();
        world.loop.advance(1min);
        EXPECT_EQ(doubt.isTriedSoon,
                  !testing::Value(world.vark.calls, testing::Each(testing::StartsWith("changes"))));
        if (doubt.left < 6 || doubt.isTriedSoon) continue;
        // The vark has them again.
        world.vark.setInSecret(items[0]);
        world.vark.setInSecret(items[1]);
        world.loop.advance(1h);
        EXPECT_THAT(world.asked(), IsEmpty());
        EXPECT_EQ(world.shown().size(), 6U);
    }
}

TEST_F(FeedFollowerTest, WhoeverStoodInTheWayComesBackUnderItsNewName) {
    follow();
    vark.setInSecret(file(1, topID, "b"));
    learn({file(1, topID, "a")});
    learn({file(2, topID, "a")});
    EXPECT_THAT(shown(), ElementsAre("a"));
    loop.advance(5s);
    EXPECT_THAT(vark.calls, Contains("item 1"));
    EXPECT_THAT(shown(), ElementsAre("a", "b"));
}

}  // namespace
}  // namespace vark::test
