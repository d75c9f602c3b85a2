#include <future>

#include "EngineFixture.h"

namespace vark::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class TransferEngineHolds : public EngineTest {
  protected:
    void addLong() {
        send("long.mov", 10'000);
        loop.advance(300ms);
    }
    void ingestTheCard() {
        engine->start(false);
        engine->setIngest(IngestInfo{.id = 9, .drive = "CARD", .volumePath = card});
        volumes.table = {{.name = "CARD", .path = card}};
        add({card});
    }
    void pullTheCard() { rename(card, folder.path() / "away"); }
    void plugTheCard() { rename(folder.path() / "away", card); }

    const std::filesystem::path card = folder.path() / "files" / "CARD";
    const std::string waiting = "Plug CARD back in to carry on. Nothing is lost.";
};

TEST_F(TransferEngineHolds, AHoldCancelsTheWorkAndKeepsWhatWasDone) {
    addLong();
    engine->setHold("sleep", "Asleep");
    loop.settle();
    EXPECT_THAT(states(), ElementsAre("queued"));
    EXPECT_TRUE(item("long.mov").sha256 && item("long.mov").uploadID);
    EXPECT_THAT(item("long.mov").doneChunks, Not(IsEmpty()));
    EXPECT_EQ(vark->chunksInFlight, 0);
    const std::size_t calls = vark->calls.size();
    loop.advance(60s);
    EXPECT_EQ(vark->calls.size(), calls);
    EXPECT_THAT(events, IsEmpty());
    engine->clearHold("sleep");
    EXPECT_THAT(statesAfter(60s), ElementsAre("verified"));
}

TEST_F(TransferEngineHolds, TheFirstKindInForceIsShownAndNothingStartsUntilAllAreGone) {
    addLong();
    engine->start(true);
    loop.settle();
    network->set(false);
    loop.settle();
    EXPECT_EQ(engine->hold(), "Waiting for the network");
    engine->setHold("sleep", "Asleep");
    EXPECT_EQ(engine->hold(), "Asleep");
    engine->clearHold("sleep");
    EXPECT_EQ(engine->hold(), "Waiting for the network");
    loop.settle();
    EXPECT_THAT(engine->activeItemIDs(), IsEmpty());
    network->set(true);
    loop.settle();
    EXPECT_EQ(engine->hold(), std::nullopt);
    EXPECT_EQ(engine->activeItemIDs().size(), 1U);
}

TEST_F(TransferEngineHolds, APauseIsSavedAndOnlyAPersonLiftsAPersonsPause) {
    addLong();
    engine->pause();
    EXPECT_TRUE(saved()->isPaused);
    EXPECT_EQ(saved()->pausedByVark, false);
    EXPECT_THAT(statesAfter(60s), ElementsAre("queued"));
    EXPECT_FALSE(engine->resumeIfTheVarkPausedIt());
    engine->resume();
    EXPECT_FALSE(saved()->isPaused);
    EXPECT_EQ(saved()->pausedByVark, std::nullopt);

    engine->pause();
    engine->pauseBecauseTheVarkRefused("A later refusal takes the pause over.");
    EXPECT_TRUE(engine->resumeIfTheVarkPausedIt());
    EXPECT_THAT(statesAfter(60s), ElementsAre("verified"));
}

TEST_F(TransferEngineHolds, ARefusedTokenPausesTheQueueUntilItIsGoodAgain) {
    const VarkAPIError refusal = VarkAPIError::unauthorized("Gone", "VARK-410");
    vark->failures["chunk"].push_back(refusal);
    addLong();
    loop.advance(5s);
    EXPECT_TRUE(engine->pausedByVark());
    EXPECT_THAT(events, ElementsAre("signed out VARK-410"));
    EXPECT_THAT(states(), ElementsAre("queued"));
    EXPECT_TRUE(saved()->pausedByVark.value_or(false));
    // Whoever limits the rounds must know those apart that lead nowhere.
    const auto goOnInto = [this](const char* kind, const VarkAPIError& error) {
        vark->failures[kind].push_back(error);
        engine->resumeIfTheVarkPausedIt();
        EXPECT_THAT(statesAfter(5s), ElementsAre("queued"));
        return events.back();
    };
    EXPECT_EQ(goOnInto("chunk", refusal), "signed out VARK-410, without progress");
    engine->resumeIfTheVarkPausedIt();
    loop.advance(150ms);
    EXPECT_EQ(goOnInto("chunk", refusal), "signed out VARK-410");
    EXPECT_EQ(goOnInto("begin", VarkAPIError::notConnected()), "no token");
}

TEST_F(TransferEngineHolds, ACardThatGoesHoldsTheQueueAndItsReturnCarriesOn) {
    write("CARD/DCIM/a.mov", 1000);
    volumes.asked = [&] {
        EXPECT_FALSE(loop.executor.isCurrent()) << "a card that does not answer would stop everything";
    };
    ingestTheCard();
    loop.advance(150ms);
    pullTheCard();
    engine->lookForTheDrive();
    loop.settle();
    EXPECT_EQ(engine->hold(), waiting);
    EXPECT_THAT(states(), ElementsAre("queued"));
    plugTheCard();
    engine->lookForTheDrive();
    EXPECT_THAT(statesAfter(10s), ElementsAre("verified"));
    EXPECT_EQ(vark->ingestIDs.back(), 9);
    EXPECT_EQ(vark->sources.back(), "DCIM/a.mov");
    // What is all sent needs no card.
    pullTheCard();
    engine->lookForTheDrive();
    loop.settle();
    EXPECT_EQ(engine->hold(), std::nullopt);
}

TEST_F(TransferEngineHolds, AnErrorWhileTheCardIsGoneNeverFailsTheItem) {
    write("CARD/a.mov", 1000);
    vark->failures["chunk"].push_back(VarkAPIError::server(400, "short"));
    ingestTheCard();
    pullTheCard();
    EXPECT_THAT(statesAfter(5s), ElementsAre("queued"));
    EXPECT_EQ(item("a.mov").attempts, 0);
    EXPECT_EQ(engine->hold(), waiting);
    engine->setIngest(std::nullopt);
    engine->lookForTheDrive();
    EXPECT_EQ(engine->hold(), std::nullopt);
}

TEST_F(TransferEngineHolds, AnErrorInTheMomentOfAPauseNeverFailsTheItem) {
    write("CARD/a.mov", 1000);
    engine->setHold("sleep", "Asleep");
    ingestTheCard();
    std::atomic<bool> isAsked = false;
    std::promise<void> answer;
    volumes.asked = [&, open = answer.get_future().share()] {
        isAsked = true;
        loop.executor.wake();
        open.wait();
    };
    vark->failures["begin"].push_back(VarkAPIError::server(400));
    engine->clearHold("sleep");
    // The engine asks whether the card is the reason, and meanwhile the person pauses.
    loop.executor.runUntil([&] { return isAsked.load(); });
    engine->pause();
    answer.set_value();
    loop.settle();
    EXPECT_TRUE(engine->isPaused());
    EXPECT_THAT(states(), ElementsAre("queued"));
    EXPECT_THAT(events, IsEmpty());
}

}  // namespace
}  // namespace vark::test
