#include "EngineFixture.h"

namespace vark::test {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class TransferEngineHolds : public EngineTest {
  protected:
    void addLong(const std::string& name = "long.mov") {
        std::filesystem::path file = write(name, 10'000);
        engine->start(false);
        add({file});
        loop.advance(300ms);
    }
    void ingestFrom(const std::filesystem::path& volume) {
        IngestInfo info;
        info.id = 9;
        info.drive = "CARD";
        info.volumePath = volume.string();
        engine->setIngest(info);
        volumes.table = {{.name = "CARD", .path = volume}};
    }
};

TEST_F(TransferEngineHolds, AHoldCancelsTheWorkAndKeepsWhatWasDone) {
    addLong();
    engine->setHold("sleep", "Asleep");
    loop.settle();
    EXPECT_THAT(states(), ElementsAre("queued"));
    EXPECT_TRUE(item("long.mov").sha256);
    EXPECT_TRUE(item("long.mov").uploadID);
    EXPECT_THAT(item("long.mov").doneChunks, Not(IsEmpty()));
    EXPECT_EQ(vark->chunksInFlight, 0);
    EXPECT_FALSE(engine->isRunning());
    EXPECT_FALSE(engine->isPaused());
    int begins = vark->count("begin");
    loop.advance(60s);
    EXPECT_EQ(vark->count("begin"), begins);
    EXPECT_THAT(events, IsEmpty());
    engine->clearHold("sleep");
    loop.advance(60s);
    EXPECT_THAT(states(), ElementsAre("verified"));
}

TEST_F(TransferEngineHolds, TheFirstKindInForceIsShownAndNothingStartsUntilAllAreGone) {
    addLong();
    engine->setHold("network", "No network");
    engine->setHold("sleep", "Asleep");
    EXPECT_EQ(engine->hold(), "Asleep");
    engine->clearHold("sleep");
    EXPECT_EQ(engine->hold(), "No network");
    loop.settle();
    EXPECT_THAT(engine->activeItemIDs(), IsEmpty());
    engine->setHold("of no known kind", "Whatever");
    engine->clearHold("network");
    EXPECT_EQ(engine->hold(), std::nullopt);
    loop.settle();
    EXPECT_EQ(engine->activeItemIDs().size(), 1U);
}

TEST_F(TransferEngineHolds, HoldPutWhileInForceDoesNotCancelAgain) {
    addLong();
    engine->setHold("of no known kind", "One");
    loop.settle();
    engine->start(false);
    loop.advance(200ms);
    ASSERT_EQ(engine->activeItemIDs().size(), 1U);
    int begins = vark->count("begin");
    engine->setHold("of no known kind", "Two");
    loop.advance(200ms);
    EXPECT_EQ(vark->count("begin"), begins);
    EXPECT_THAT(logged(), Contains("One"));
    EXPECT_THAT(logged(), Not(Contains("Two")));
}

TEST_F(TransferEngineHolds, APauseIsSavedAndOnlyAPersonLiftsAPersonsPause) {
    addLong();
    engine->pause();
    EXPECT_TRUE(saved()->isPaused);
    EXPECT_EQ(saved()->pausedByVark, false);
    loop.advance(60s);
    EXPECT_THAT(states(), ElementsAre("queued"));
    EXPECT_FALSE(engine->resumeIfTheVarkPausedIt());
    std::vector<std::string> before = logged();
    engine->pause();
    EXPECT_EQ(logged(), before);
    engine->resume();
    engine->resume();
    EXPECT_FALSE(saved()->isPaused);
    EXPECT_EQ(saved()->pausedByVark, std::nullopt);
    loop.advance(60s);
    EXPECT_THAT(states(), ElementsAre("verified"));
    EXPECT_EQ(std::ranges::count(logged(), "Resumed"), 1);
}

TEST_F(TransferEngineHolds, ALaterRefusalTakesAPersonsPauseOver) {
    addLong();
    engine->pause();
    engine->pauseBecauseTheVarkRefused("Refused");
    EXPECT_TRUE(engine->pausedByVark());
    EXPECT_TRUE(engine->resumeIfTheVarkPausedIt());
    EXPECT_FALSE(engine->isPaused());
}

TEST_F(TransferEngineHolds, ARefusedTokenPausesTheQueueUntilItIsGoodAgain) {
    vark->failures["chunk"].push_back(VarkAPIError::unauthorized("Gone", "VARK-410"));
    addLong();
    loop.advance(5s);
    EXPECT_TRUE(engine->pausedByVark());
    EXPECT_THAT(events, ElementsAre("signed out VARK-410"));
    EXPECT_THAT(states(), ElementsAre("queued"));
    EXPECT_TRUE(saved()->pausedByVark.value_or(false));
    EXPECT_THAT(logged(),
                Contains("The vark refused this Mac's token; the queue is paused while that is checked"));
    // Whoever limits the rounds must know those apart that lead nowhere.
    const VarkAPIError refusal = VarkAPIError::unauthorized("Gone", "VARK-410");
    vark->failures["chunk"].push_back(refusal);
    EXPECT_TRUE(engine->resumeIfTheVarkPausedIt());
    loop.advance(5s);
    EXPECT_EQ(events.back(), "signed out VARK-410, without progress");
    EXPECT_TRUE(engine->resumeIfTheVarkPausedIt());
    loop.advance(150ms);
    vark->failures["chunk"].push_back(refusal);
    loop.advance(5s);
    EXPECT_EQ(events.back(), "signed out VARK-410");
    EXPECT_TRUE(engine->resumeIfTheVarkPausedIt());
    loop.advance(60s);
    EXPECT_THAT(states(), ElementsAre("verified"));
}

TEST_F(TransferEngineHolds, NoTokenPausesTheQueueToo) {
    vark->failures["begin"].push_back(VarkAPIError::notConnected());
    addLong();
    loop.advance(5s);
    EXPECT_THAT(events, ElementsAre("no token"));
    EXPECT_TRUE(engine->pausedByVark());
    EXPECT_THAT(logged(), Contains("No token to send with; the queue waits"));
    EXPECT_THAT(states(), ElementsAre("queued"));
}

TEST_F(TransferEngineHolds, OfficeHoursHoldTheQueueUntilTheyEnd) {
    // The clock stands at 12:00 on a Wednesday.
    addLong();
    OfficeHours hours;
    hours.onlyOutside = true;
    hours.endMinute = 12 * 60 + 1;
    engine->setOfficeHours(hours);
    EXPECT_EQ(engine->hold(), "Waiting until 12:01: outside office hours only");
    loop.advance(59s);
    EXPECT_THAT(engine->activeItemIDs(), IsEmpty());
    loop.advance(61s);
    EXPECT_EQ(engine->hold(), std::nullopt);
    loop.advance(60s);
    EXPECT_THAT(states(), ElementsAre("verified"));
    EXPECT_EQ(std::ranges::count(logged(), "Waiting until 12:01: outside office hours only"), 1);
}

TEST_F(TransferEngineHolds, ACardThatGoesHoldsTheQueueAndItsReturnCarriesOn) {
    std::filesystem::path card = folder.path() / "files" / "CARD";
    write("CARD/DCIM/a.mov", 1000);
    engine->start(false);
    ingestFrom(card);
    add({card});
    loop.advance(150ms);
    std::filesystem::rename(card, folder.path() / "away");
    engine->lookForTheDrive();
    loop.settle();
    EXPECT_EQ(engine->hold(), "Plug CARD back in to carry on. Nothing is lost.");
    EXPECT_THAT(states(), ElementsAre("queued"));
    loop.advance(31s);
    EXPECT_TRUE(engine->hold());
    std::filesystem::rename(folder.path() / "away", card);
    engine->lookForTheDrive();
    loop.settle();
    EXPECT_EQ(engine->hold(), std::nullopt);
    loop.advance(10s);
    EXPECT_THAT(states(), ElementsAre("verified"));
    EXPECT_THAT(logged(), Contains("CARD is back; carrying on"));
    EXPECT_EQ(vark->ingestIDs.back(), 9);
    EXPECT_EQ(vark->sources.back(), "DCIM/a.mov");
}

TEST_F(TransferEngineHolds, TheCardIsLookedForOffTheExecutor) {
    std::filesystem::path card = folder.path() / "files" / "CARD";
    write("CARD/a.mov", 10'000);
    engine->start(false);
    ingestFrom(card);
    std::atomic<int> looks = 0;
    volumes.asked = [&] {
        ++looks;
        EXPECT_FALSE(loop.executor.isCurrent()) << "a card that does not answer would stop everything";
    };
    add({card});
    vark->failures["begin"].push_back(VarkAPIError::server(400));
    engine->lookForTheDrive();
    loop.advance(31s);
    engine->lookForTheDrive();
    loop.settle();
    EXPECT_GT(looks, 0);
    volumes.asked = nullptr;
}

TEST_F(TransferEngineHolds, AnErrorWhileTheCardIsGoneNeverFailsTheItem) {
    std::filesystem::path card = folder.path() / "files" / "CARD";
    write("CARD/a.mov", 1000);
    engine->start(false);
    ingestFrom(card);
    vark->failures["chunk"].push_back(VarkAPIError::server(400, "short"));
    add({card});
    std::filesystem::rename(card, folder.path() / "away");
    loop.advance(5s);
    EXPECT_THAT(states(), ElementsAre("queued"));
    EXPECT_EQ(item("a.mov").attempts, 0);
    EXPECT_EQ(engine->hold(), "Plug CARD back in to carry on. Nothing is lost.");
    engine->setIngest(std::nullopt);
    engine->lookForTheDrive();
    EXPECT_EQ(engine->hold(), std::nullopt);
}

TEST_F(TransferEngineHolds, NothingThatNeedsNoCardAsksForIt) {
    std::filesystem::path card = folder.path() / "files" / "CARD";
    write("CARD/a.mov", 100);
    engine->start(false);
    ingestFrom(card);
    add({card});
    loop.advance(5s);
    std::filesystem::rename(card, folder.path() / "away");
    engine->lookForTheDrive();
    loop.settle();
    EXPECT_EQ(engine->hold(), std::nullopt);
    engine->ingestReported();
    EXPECT_TRUE(saved()->ingest->reported);
}

}  // namespace
}  // namespace vark::test
