#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/VarkReplica/ReplicaWorld.h"

namespace vark::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;

using Items = std::vector<VarkItem>;
using IDs = std::vector<std::int64_t>;

struct Page {
    const char* what;
    Items before;
    Items page;
    std::vector<std::string> shown;
    IDs asked = {};
};

// What stands at the top: a folder "f" (1) with a file "x" (2) in it, and a folder "g" (3).
const Items someTree = {folder(1, topID, "f"), file(2, 1, "x"), folder(3, topID, "g")};

TEST(Learning, PageIsTakenInAsAWhole) {
    const std::string tooLong(256, 'n');
    const Page pages[] = {
        {"two swap their names",
         {file(1, topID, "a"), file(2, topID, "b")},
         {file(1, topID, "b"), file(2, topID, "a")},
         {"a", "b"}},
        {"folders that change hands keep what is in them",
         someTree,
         {folder(1, topID, "g"), folder(3, topID, "f")},
         {"f/", "g/", "g/x"}},
        {"a folder comes behind what it holds",
         {},
         {file(3, 2, "deep"), folder(2, 1, "in"), folder(1, topID, "out")},
         {"out/", "out/in/", "out/in/deep"}},
        {"what one page says twice holds as it says it last",
         {},
         {file(1, topID, "a"), file(2, topID, "b"), file(1, topID, "c")},
         {"b", "c"}},
        {"an item without a folder of its own stands at the top",
         {},
         {[] {
             VarkItem item = file(1, 0, "a");
             item.parent.reset();
             return item;
         }()},
         {"a"}},
        {"the top itself is never an item", someTree, {folder(topID, 3, "top")}, {"f/", "f/x", "g/"}},
        {"items in folders that are not known are passed over", {}, {file(1, 77, "a")}, {}},
        {"what goes to a folder that is not known is not shown", someTree, {file(2, 77, "x")}, {"f/", "g/"}},
        {"and comes back when it does",
         someTree,
         {file(2, 77, "x"), folder(77, 3, "h")},
         {"f/", "g/", "g/h/", "g/h/x"}},
        {"whoever stands in the way is asked for", someTree, {file(9, 1, "x", 2)}, {"f/", "f/x", "g/"}, {2}},
        {"names that lead elsewhere or are too long are left out",
         someTree,
         {file(5, topID, "."), file(6, topID, ".."), file(7, topID, ""), file(8, topID, "../../x"),
          file(9, topID, tooLong), file(2, 1, tooLong), file(10, topID, tooLong.substr(1))},
         {"f/", "g/", tooLong.substr(1)}},
        {"a name is any other bytes",
         {},
         {file(1, topID, "\x1b[2J"), file(2, topID, "replica.db")},
         {"\x1b[2J", "replica.db"}},
        {"a folder never comes to lie in itself",
         {folder(1, topID, "f"), folder(2, 1, "g"), folder(3, 2, "h")},
         {folder(1, 3, "f")},
         {},
         {1}},
        {"a file that is a folder now",
         someTree,
         {folder(2, 1, "x"), file(5, 2, "y")},
         {"f/", "f/x/", "f/x/y", "g/"}},
    };
    for (const Page& page : pages) {
        SCOPED_TRACE(page.what);
        ReplicaWorld world;
        world.learn(page.before);
        world.learn(page.page);
        std::vector<std::string> expected = page.shown;
        std::ranges::sort(expected);
        EXPECT_EQ(world.shown(), expected);
        EXPECT_EQ(world.asked(), page.asked);
    }
}

TEST(Learning, AnswerNeverOverridesWhatWasLearntAfterItsQuestion) {
    const Items renamed = {file(2, 1, "y")};
    const Items moved = {file(2, 3, "x")};
    struct Case {
        const char* what;
        Items lateItems;
        IDs lateGone;
        IDs asked;
    };
    // Each late answer comes to a question that left before the file was renamed to "y".
    const Case cases[] = {
        {"an old name", {file(2, 1, "x")}, {}, {2}},
        {"an old name that somebody else has now", {file(2, 1, "f")}, {}, {2}},
        {"what is so anyway", renamed, {}, {}},
        {"other contents", {file(2, 1, "y", 3)}, {}, {2}},
        {"that it is gone", {}, {2}, {2}},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.what);
        ReplicaWorld world;
        world.learn(someTree);
        const Asked early = world.replica().ask();
        world.learn(renamed);
        const Learnt learnt = world.replica().learnFeed(each.lateItems, each.lateGone, "place", early);
        EXPECT_THAT(world.shown(), ElementsAre("f/", "f/y", "g/"));
        EXPECT_THAT(learnt.news, IsEmpty());
        EXPECT_EQ(world.asked(), each.asked);
        // Asked for again, it is as the vark says then.
        world.learn(moved);
        EXPECT_THAT(world.shown(), ElementsAre("f/", "g/", "g/x"));
        EXPECT_THAT(world.asked(), IsEmpty());
    }
}

TEST(Learning, OldListBringsNothingBackThatHasGone) {
    ReplicaWorld world;
    world.learn(someTree);
    const Asked early = world.replica().ask();
    world.gone({2, 9});
    world.replica().learn(Items{file(2, 1, "x"), file(9, 1, "never seen")}, early);
    EXPECT_THAT(world.shown(), ElementsAre("f/", "g/"));
    // Nor after a restart.
    world.restart();
    world.replica().learn(Items{file(2, 1, "x")}, early);
    EXPECT_THAT(world.shown(), ElementsAre("f/", "g/"));
    // What was put back is asked for later than that.
    world.learn({file(2, 1, "x")});
    EXPECT_THAT(world.shown(), ElementsAre("f/", "f/x", "g/"));
}

TEST(Learning, ListThatLacksAnItemTakesNothingAway) {
    ReplicaWorld world;
    world.learn(
        {folder(1, topID, "f"), file(2, 1, "confirmed"), file(3, 1, "lacking"), file(4, topID, "other")});
    const Asked asked = world.replica().ask();
    world.replica().learn(Items{file(2, 1, "confirmed")}, asked);
    world.learn({file(5, 1, "made meanwhile")});
    world.replica().markListed(world.ino(1), asked);
    EXPECT_THAT(world.shown(), ElementsAre("f/", "f/confirmed", "f/lacking", "f/made meanwhile", "other"));
    EXPECT_THAT(world.asked(), ElementsAre(3));
}

TEST(Learning, WhatIsGoneTakesAlongWhatIsInItAndNothingThatLeftIt) {
    ReplicaWorld world;
    world.learn({folder(1, topID, "f"), folder(2, 1, "in"), file(3, 2, "deep"), file(4, 1, "leaves"),
                 folder(5, topID, "g")});
    const Ino deep = world.ino(3);
    world.replica().learnFeed(Items{file(4, 5, "leaves"), file(6, 1, "came and went")}, IDs{1, 6, topID}, "p",
                              world.replica().ask());
    EXPECT_THAT(world.shown(), ElementsAre("g/", "g/leaves"));
    EXPECT_EQ(world.replica().record(deep), std::nullopt);
    EXPECT_EQ(world.replica().anchor(), "p");
}

struct Told {
    const char* what;
    Items items;
    IDs gone;
    std::function<std::vector<KernelNews>(ReplicaWorld&)> news;
};

TEST(Learning, KernelHearsOfEachChangeAndOfNothingElse) {
    // "f" is listed, so what it lacks is remembered; "g" is not.
    const Told told[] = {
        {"nothing new", someTree, {}, [](auto&) { return std::vector<KernelNews>{}; }},
        {"other bytes",
         {file(2, 1, "x", 2)},
         {},
         [](auto& world) { return std::vector<KernelNews>{InodeNews{world.ino(2)}}; }},
        {"another name",
         {file(2, 1, "y")},
         {},
         [](auto& world) {
             const Ino f = world.ino(1);
             return std::vector<KernelNews>{EntryNews{f, "x"}, EntryNews{f, "y"}, InodeNews{f}};
         }},
        {"another folder, whose names are not remembered",
         {file(2, 3, "x")},
         {},
         [](auto& world) {
             const Ino f = world.ino(1);
             return std::vector<KernelNews>{EntryNews{f, "x"}, InodeNews{f}};
         }},
        {"a folder that is not known",
         {file(2, 77, "x")},
         {},
         [](auto& world) {
             const Ino f = world.ino(1);
             return std::vector<KernelNews>{GoneNews{f, "x", world.ino(2)}, InodeNews{f}};
         }},
        {"new in a folder that is listed",
         {file(9, 1, "new")},
         {},
         [](auto& world) {
             const Ino f = world.ino(1);
             return std::vector<KernelNews>{EntryNews{f, "new"}, InodeNews{f}};
         }},
        {"new in one that is not", {file(9, 3, "new")}, {}, [](auto&) { return std::vector<KernelNews>{}; }},
        {"another file under the name, in a folder that is not listed",
         {file(9, 3, "old")},
         {},
         [](auto& world) {
             const Ino g = world.ino(3);
             return std::vector<KernelNews>{EntryNews{g, "old"}, InodeNews{g}};
         }},
        {"gone, with its folder told once",
         {},
         {1},
         [](auto&) { return std::vector<KernelNews>{GoneNews{rootIno, "f", 2}, InodeNews{rootIno}}; }},
    };
    for (const Told& each : told) {
        SCOPED_TRACE(each.what);
        ReplicaWorld world;
        world.learn(someTree);
        world.learn({file(4, 3, "old")});
        world.replica().markListed(world.ino(1), Asked{});
        ASSERT_EQ(world.ino(1), 2);
        const Learnt learnt = world.replica().learnFeed(each.items, each.gone, "p", world.replica().ask());
        EXPECT_THAT(learnt.news, UnorderedElementsAreArray(each.news(world)));
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
    world.learn({touched});
    EXPECT_EQ(world.ino(2), old.ino);
    EXPECT_EQ(world.row(2).content, old.content);

    const Learnt learnt = world.learn({file(2, 1, "x", 2)});
    const Record comer = world.row(2);
    EXPECT_NE(comer.ino, old.ino);
    EXPECT_EQ(comer.position, old.position);
    EXPECT_EQ(comer.here.size, 20);
    EXPECT_THAT(world.shown(), ElementsAre("f/", "f/x", "g/"));
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
    EXPECT_THAT(world.shown(), ElementsAre("g/"));
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
    world.learn({file(2, 3, "moved")});
    EXPECT_EQ(world.row(2).held, Held::whole);
    // Also of one that is not shown meanwhile.
    world.learn({file(2, 77, "moved", 2)});
    world.learn({file(2, 3, "moved", 2)});
    EXPECT_EQ(world.row(2).held, Held::nothing);
    EXPECT_GT(world.row(2).content, row.content);
}

}  // namespace
}  // namespace vark::test
