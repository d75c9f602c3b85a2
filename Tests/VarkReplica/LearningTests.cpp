#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/VarkReplica/ReplicaWorld.h"

namespace vark::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;

using IDs = std::vector<std::int64_t>;

constexpr const char* someTree = "1=f/ 2=x@1 3=g/";

TEST(Learning, PageIsTakenInAsAWhole) {
    struct {
        const char* what;
        const char* before;
        const char* page;
        const char* shown;
        IDs asked = {};
    } const pages[] = {
        {"two swap their names", "1=a 2=b", "1=b 2=a", "a b"},
        {"folders that change hands keep what is in them", someTree, "1=g/ 3=f/", "f/ g/ g/x"},
        {"a folder comes behind what it holds", "", "3=deep@2 2=in/@1 1=out/", "out/ out/in/ out/in/deep"},
        {"what one page says twice holds as it says it last", "", "1=a 2=b 1=c", "b c"},
        {"the top itself is never an item", someTree, "100=top/@3", "f/ f/x g/"},
        {"items in folders that are not known are passed over", "", "1=a@77", ""},
        {"what goes to a folder that is not known is not shown", someTree, "2=x@77", "f/ g/"},
        {"and comes back when it does", someTree, "2=x@77 77=h/@3", "f/ g/ g/h/ g/h/x"},
        {"whoever stands in the way is asked for", someTree, "9=x:2@1", "f/ f/x g/", {2}},
        {"a folder never comes to lie in itself", "1=f/ 2=g/@1 3=h/@2", "1=f/@3", "", {1}},
        {"a file that is a folder now", someTree, "2=x/@1 5=y@2", "f/ f/x/ f/x/y g/"},
    };
    for (const auto& page : pages) {
        SCOPED_TRACE(page.what);
        ReplicaWorld world;
        world.learn(page.before);
        world.learn(page.page);
        EXPECT_EQ(world.shown(), page.shown);
        EXPECT_EQ(world.asked(), page.asked);
    }
}

TEST(Learning, NamesThatLeadElsewhereOrAreTooLongAreLeftOut) {
    ReplicaWorld world;
    world.learn(someTree);
    const std::string tooLong(256, 'n');
    const std::string longest(255, 'n');
    world.learn(Items{file(5, topID, "."), file(6, topID, ".."), file(7, topID, ""),
                      file(8, topID, "../../x"), file(9, topID, tooLong), file(2, 1, tooLong),
                      file(10, topID, longest), file(11, topID, "\x1b[2J")});
    EXPECT_EQ(world.shown(), "\x1b[2J f/ g/ " + longest);
}

TEST(Learning, AnswerNeverOverridesWhatWasLearntAfterItsQuestion) {
    // Each late answer comes to a question that left before the file was renamed to "y".
    struct {
        const char* what;
        const char* late;
        IDs lateGone;
        IDs asked;
    } const cases[] = {
        {"an old name", "2=x@1", {}, {2}},
        {"what is so anyway", "2=y@1", {}, {}},
        {"other contents", "2=y:3@1", {}, {2}},
        {"that it is gone", "", {2}, {2}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        ReplicaWorld world;
        world.learn(someTree);
        const Asked early = world.replica().ask();
        world.learn("2=y@1");
        const Learnt learnt = world.replica().learnFeed(items(each.late), each.lateGone, "place", early);
        EXPECT_EQ(world.shown(), "f/ f/y g/");
        EXPECT_THAT(learnt.news, IsEmpty());
        EXPECT_EQ(world.asked(), each.asked);
        // Asked for again, it is as the vark says then.
        world.learn("2=x@3");
        EXPECT_EQ(world.shown(), "f/ g/ g/x");
        EXPECT_THAT(world.asked(), IsEmpty());
    }
}

TEST(Learning, OldListBringsNothingBackThatHasGone) {
    ReplicaWorld world;
    world.learn(someTree);
    const Asked early = world.replica().ask();
    world.gone({2, 9});
    world.replica().learn(items("2=x@1 9=never-seen@1"), early);
    EXPECT_EQ(world.shown(), "f/ g/");
    world.restart();
    world.replica().learn(items("2=x@1"), early);
    EXPECT_EQ(world.shown(), "f/ g/");
    // What was put back is asked for later than that.
    world.learn("2=x@1");
    EXPECT_EQ(world.shown(), "f/ f/x g/");
}

TEST(Learning, ListThatLacksAnItemTakesNothingAway) {
    ReplicaWorld world;
    world.learn("1=f/ 2=confirmed@1 3=lacking@1 4=other");
    const Asked asked = world.replica().ask();
    world.replica().learn(items("2=confirmed@1"), asked);
    world.learn("5=new@1");
    world.replica().markListed(world.ino(1), asked);
    EXPECT_EQ(world.shown(), "f/ f/confirmed f/lacking f/new other");
    EXPECT_THAT(world.asked(), ElementsAre(3));
}

TEST(Learning, WhatIsGoneTakesAlongWhatIsInItAndNothingThatLeftIt) {
    ReplicaWorld world;
    world.learn("1=f/ 2=in/@1 3=deep@2 4=leaves@1 5=g/");
    const Ino deep = world.ino(3);
    world.replica().learnFeed(items("4=leaves@5 6=came-and-went@1"), IDs{1, 6, topID}, "p",
                              world.replica().ask());
    EXPECT_EQ(world.shown(), "g/ g/leaves");
    EXPECT_EQ(world.replica().record(deep), std::nullopt);
    EXPECT_EQ(world.replica().anchor(), "p");
}

TEST(Learning, KernelHearsOfEachChangeAndOfNothingElse) {
    // "f" is listed, so what it lacks is remembered; "g" is not.
    constexpr Ino f = 2;
    constexpr Ino g = 3;
    constexpr Ino x = 4;
    struct {
        const char* what;
        const char* items;
        IDs gone;
        std::vector<KernelNews> news;
    } const cases[] = {
        {"nothing new", someTree, {}, {}},
        {"other bytes", "2=x:2@1", {}, {InodeNews{x}}},
        {"another name", "2=y@1", {}, {EntryNews{f, "x"}, EntryNews{f, "y"}, InodeNews{f}}},
        {"a folder whose names are not remembered", "2=x@3", {}, {EntryNews{f, "x"}, InodeNews{f}}},
        {"a folder that is not known", "2=x@77", {}, {GoneNews{f, "x", x}, InodeNews{f}}},
        {"new in a folder that is listed", "9=new@1", {}, {EntryNews{f, "new"}, InodeNews{f}}},
        {"new in one that is not", "9=new@3", {}, {}},
        {"another file under a name", "9=old@3", {}, {EntryNews{g, "old"}, InodeNews{g}}},
        {"gone, told of its folder alone", "", {1}, {GoneNews{rootIno, "f", f}, InodeNews{rootIno}}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        ReplicaWorld world;
        world.learn(someTree);
        world.learn("4=old@3");
        world.replica().markListed(world.ino(1), Asked{});
        // Folders come first.
        ASSERT_THAT((std::array{world.ino(1), world.ino(3), world.ino(2)}), ElementsAre(2, 3, 4));
        const Learnt learnt =
            world.replica().learnFeed(items(each.items), each.gone, "p", world.replica().ask());
        EXPECT_THAT(learnt.news, UnorderedElementsAreArray(each.news));
    }
}

TEST(Learning, OpenFileKeepsItsBytesAndTheNameGetsTheNewOnes) {
    ReplicaWorld world;
    world.learn(someTree);
    const Record old = world.row(2);
    world.replica().opened(old.ino);
    world.replica().opened(old.ino);

    // Where only the time differs, the bytes are the same and so is the file.
    VarkItem touched = file(2, 1, "x");
    touched.mtime = 99;
    world.learn(Items{touched});
    EXPECT_EQ(world.ino(2), old.ino);
    EXPECT_EQ(world.row(2).content, old.content);

    const Learnt learnt = world.learn("2=x:2@1");
    const Record comer = world.row(2);
    EXPECT_NE(comer.ino, old.ino);
    EXPECT_EQ(comer.position, old.position);
    EXPECT_EQ(comer.here.size, 20);
    EXPECT_EQ(world.shown(), "f/ f/x g/");
    EXPECT_EQ(world.replica().record(old.ino)->here.size, 10);
    EXPECT_THAT(learnt.news, UnorderedElementsAreArray(std::vector<KernelNews>{EntryNews{world.ino(1), "x"},
                                                                               InodeNews{world.ino(1)}}));
    world.replica().closed(old.ino);
    EXPECT_TRUE(world.replica().record(old.ino));
    world.replica().closed(old.ino);
    EXPECT_FALSE(world.replica().record(old.ino));

    // Gone while it is open; the program ends before it is closed.
    world.replica().opened(comer.ino);
    world.gone({1});
    EXPECT_EQ(world.shown(), "g/");
    EXPECT_EQ(world.replica().record(comer.ino)->here.size, 20);
    world.restart();
    EXPECT_FALSE(world.replica().record(comer.ino));
}

TEST(Learning, NewVersionIsNeverTakenForTheBytesOfTheOldOne) {
    ReplicaWorld world;
    world.learn(someTree);
    Record row = world.row(2);
    row.held = Held::whole;
    {
        Turn turn = world.store().write();
        ItemRows(turn).set(row);
        turn.commit();
    }
    world.learn("2=moved@3");
    EXPECT_EQ(world.row(2).held, Held::whole);
    // Also of one that is not shown meanwhile.
    world.learn("2=moved:2@77");
    world.learn("2=moved:2@3");
    EXPECT_EQ(world.row(2).held, Held::nothing);
    EXPECT_GT(world.row(2).content, row.content);
}

}  // namespace
}  // namespace vark::test
