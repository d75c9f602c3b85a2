#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "Tests/VarkReplica/ReplicaWorld.h"

namespace vark::test {
namespace {

TEST(Replica, NameIsMissingOnlyInAFolderThatIsListed) {
    ReplicaWorld world;
    world.learn("1=f/ 2=x@1");
    const Ino f = world.ino(1);
    EXPECT_EQ(world.replica().lookup(f, "x")->here.size, 10);
    EXPECT_THROW(world.replica().lookup(f, "X"), NotKnown);
    EXPECT_FALSE(world.replica().list(f, 0, 10).isAll);
    world.replica().markListed(f, Asked{});
    EXPECT_FALSE(world.replica().lookup(f, "X"));
    EXPECT_TRUE(world.replica().list(f, 0, 10).isAll);
    EXPECT_THROW(world.replica().lookup(world.ino(2), "x"), NoSuchNode);
    EXPECT_THROW(world.replica().list(77, 0, 10), NoSuchNode);
    EXPECT_THROW(world.replica().markListed(world.ino(2), Asked{}), NoSuchNode);
}

TEST(Replica, ListingGoesOnWhereItWasWhateverComesAndGoes) {
    ReplicaWorld world;
    world.learn("1=n1 2=n2 3=n3 4=n4 5=n5 6=n6 7=n7 8=n8 9=n9");
    world.replica().markListed(rootIno, Asked{});

    std::multiset<std::string> seen;
    Position after = 0;
    for (int part = 0;; ++part) {
        const Listing listing = world.replica().list(rootIno, after, 2);
        for (const Listing::Entry& entry : listing.entries) {
            seen.insert(entry.here.name);
            after = entry.position;
        }
        if (listing.isAll) break;
        // Some of those that were seen and of those that were not go, get other bytes, and other names.
        if (part == 0) world.gone({1, 9});
        if (part == 1) world.learn("2=was-n2:2 20=new");
    }
    EXPECT_THAT(seen, testing::ElementsAre("n1", "n2", "n3", "n4", "n5", "n6", "n7", "n8", "new"));
}

TEST(Replica, RestartFindsAllAsItWas) {
    ReplicaWorld world;
    world.learn("1=f/ 2=x@1");
    world.replica().markListed(world.ino(1), Asked{});
    world.replica().setAnchor("12|3");
    const Record before = world.row(2);
    const Asked early = world.replica().ask();
    world.restart();
    EXPECT_EQ(world.row(2), before);
    EXPECT_TRUE(world.row(1).listed);
    EXPECT_EQ(world.replica().anchor(), "12|3");
    EXPECT_GE(world.replica().ask().at, early.at);
    // A number is never used twice, even where it was the last.
    world.gone({2});
    world.restart();
    world.learn("2=x@1");
    EXPECT_GT(world.ino(2), before.ino);
}

TEST(Replica, NobodyWhoLooksWaitsForWhoeverWrites) {
    ReplicaWorld world;
    world.learn("1=a");
    Turn turn = world.store().write();
    turn.query("DELETE FROM items WHERE id = 1").run();
    std::optional<Record> row;
    std::jthread([&] { row = world.replica().lookup(rootIno, "a"); }).join();
    EXPECT_TRUE(row);
}

}  // namespace
}  // namespace vark::test
