#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "Tests/VarkReplica/ReplicaWorld.h"

namespace vark::test {
namespace {

TEST(Replica, NameIsMissingOnlyInAFolderThatIsListed) {
    ReplicaWorld world;
    world.learn({folder(1, topID, "f"), file(2, 1, "x")});
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
    std::vector<VarkItem> items;
    for (int number = 1; number <= 9; ++number)
        items.push_back(file(number, topID, fmt::format("n{}", number)));
    world.learn(items);
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
        if (part == 1) world.learn({file(2, topID, "was n2", 2), file(20, topID, "new")});
    }
    EXPECT_THAT(seen, testing::ElementsAre("n1", "n2", "n3", "n4", "n5", "n6", "n7", "n8", "new"));
}

TEST(Replica, RestartFindsAllAsItWas) {
    ReplicaWorld world;
    world.learn({folder(1, topID, "f"), file(2, 1, "x")});
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
    world.learn({file(2, 1, "x")});
    EXPECT_GT(world.ino(2), before.ino);
}

TEST(Replica, NobodyWhoLooksWaitsForWhoeverWrites) {
    ReplicaWorld world;
    world.learn({file(1, topID, "a")});
    Turn turn = world.store().write();
    turn.query("DELETE FROM items WHERE id = 1").run();
    std::optional<Record> row;
    std::jthread([&] { row = world.replica().lookup(rootIno, "a"); }).join();
    EXPECT_TRUE(row);
}

}  // namespace
}  // namespace vark::test
