#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/VarkReplica/FollowingWorld.h"

namespace vark::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using namespace std::chrono_literals;

/// The top holds seven files, and an answer takes a second.
class FolderListerTest : public testing::Test, protected FollowingWorld {
  protected:
    FolderListerTest() {
        vark.set("1=n1 2=n2 3=n3 4=n4 5=n5 6=n6 7=n7");
        vark.thinking = 1s;
    }
};

TEST_F(FolderListerTest, FolderShowsAfterItsFirstPageAndIsAskedForOnce) {
    const TaskHandle<void> first = loop.start(lister().entriesBehind(rootIno, 0));
    const TaskHandle<void> second = loop.start(lister().entriesBehind(rootIno, 0));
    const TaskHandle<void> all = loop.start(lister().listed(rootIno));
    lister().begin(rootIno);
    loop.advance(1s);
    EXPECT_TRUE(first.done() && second.done());
    const Listing listing = replica().list(rootIno, 0, 10);
    EXPECT_THAT(listing.entries, SizeIs(3));
    EXPECT_FALSE(listing.isAll);
    // Behind what has come, the next page is waited for.
    const TaskHandle<void> further =
        loop.start(lister().entriesBehind(rootIno, listing.entries.back().position));
    loop.settle();
    EXPECT_FALSE(further.done());
    loop.advance(1s);
    EXPECT_TRUE(further.done());
    EXPECT_FALSE(all.done());
    loop.advance(1s);
    EXPECT_TRUE(all.done());
    EXPECT_EQ(shown(), "n1 n2 n3 n4 n5 n6 n7");
    EXPECT_THAT(vark.taken(),
                ElementsAre("children 100 from ", "children 100 from 3", "children 100 from 6"));
    // Nobody had reason to remember anything of it.
    EXPECT_THAT(told, IsEmpty());
    // From now on it is never asked for again.
    run(lister().listed(rootIno));
    run(lister().entriesBehind(rootIno, 1'000'000));
    EXPECT_EQ(run(lister().named(rootIno, "n8")), std::nullopt);
    EXPECT_THAT(vark.taken(), IsEmpty());
}

TEST_F(FolderListerTest, WhoeverIsCancelledStopsNothing) {
    const TaskHandle<void> impatient = loop.start(lister().entriesBehind(rootIno, 0));
    loop.advance(500ms);
    impatient.cancel();
    loop.settle();
    EXPECT_TRUE(impatient.done());
    loop.advance(3s);
    EXPECT_TRUE(replica().record(rootIno)->listed);
}

TEST_F(FolderListerTest, FailureKeepsWhatHasComeAndTheNextOneBeginsAnew) {
    vark.failures["children"] = {VarkAPIError::server(500)};
    const TaskHandle<void> waiting = loop.start(lister().entriesBehind(rootIno, 0));
    loop.advance(1s);
    EXPECT_THROW(waiting.result(), ListingFailure);

    // In the middle: the first one does not notice, the second one does.
    const TaskHandle<void> first = loop.start(lister().entriesBehind(rootIno, 0));
    const TaskHandle<void> all = loop.start(lister().listed(rootIno));
    loop.advance(1s);
    vark.failures["children"] = {VarkAPIError::transport("No network.")};
    loop.advance(2s);
    EXPECT_NO_THROW(first.result());
    EXPECT_THROW(all.result(), ListingFailure);
    EXPECT_EQ(shown(), "n1 n2 n3 n4 n5 n6");
    EXPECT_FALSE(replica().record(rootIno)->listed);

    run(lister().listed(rootIno));
    EXPECT_EQ(shown(), "n1 n2 n3 n4 n5 n6 n7");
    EXPECT_THAT(asked(), IsEmpty());
    EXPECT_THROW(run(lister().listed(77)), NoSuchNode);
}

TEST_F(FolderListerTest, NameIsAskedForAloneAndMissingIsNotRemembered) {
    vark.thinking = 0s;
    vark.failures["children"] = std::deque(100, VarkAPIError::server(500));
    EXPECT_EQ(run(lister().named(rootIno, "n7"))->here.size, 10);
    EXPECT_EQ(run(lister().named(rootIno, "n8")), std::nullopt);
    EXPECT_THROW(replica().lookup(rootIno, "n8"), NotKnown);
    vark.failures["child"] = {VarkAPIError::server(503)};
    EXPECT_THROW(run(lister().named(rootIno, "n6")), VarkAPIError);
    // A vark that cannot say it of a name lists the folder.
    vark.knowsChildren = false;
    vark.failures.clear();
    EXPECT_EQ(run(lister().named(rootIno, "n6"))->here.name, "n6");
    EXPECT_TRUE(replica().record(rootIno)->listed);
}

TEST_F(FolderListerTest, NothingIsListedBeforeThereIsAPlaceInTheFeed) {
    follow();
    const TaskHandle<void> all = loop.start(lister().listed(rootIno));
    loop.settle();
    EXPECT_THAT(vark.calls, ElementsAre("changes from the end"));
    loop.advance(5s);
    EXPECT_TRUE(all.done());
    EXPECT_THAT(vark.calls, testing::Contains("children 100 from "));
}

TEST_F(FolderListerTest, PageThatCameAlongIsAsOldAsItsQuestion) {
    vark.set("1=f/ 2=old@1 3=goes@1");
    vark.looksAhead = true;
    run(lister().listed(rootIno));
    vark.taken();
    learn("2=new@1");
    gone({3});
    run(lister().listed(ino(1)));
    EXPECT_THAT(vark.taken(), IsEmpty());
    EXPECT_EQ(shown(), "f/ f/new n4 n5 n6 n7");
    EXPECT_THAT(asked(), ElementsAre(2));
}

}  // namespace
}  // namespace vark::test
