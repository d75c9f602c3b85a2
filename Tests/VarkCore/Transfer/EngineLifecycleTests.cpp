#include "EngineFixture.h"

namespace vark::test {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class TransferEngineLifecycle : public EngineTest {};

TEST_F(TransferEngineLifecycle, SendsWhatWasAddedAndSaysSo) {
    write("Shoot/one.mov", 250);
    write("Shoot/two.mov", 0);
    engine->maxConcurrentFiles = 1;
    engine->start(false);
    engine->setDestination("//Jobs//2024/");
    EXPECT_EQ(add({folder.path() / "files" / "Shoot"}).items, 2);
    loop.advance(5s);
    EXPECT_THAT(states(), ElementsAre("verified", "verified"));
    EXPECT_EQ(vark->files.size(), 2U);
    EXPECT_TRUE(vark->files.contains("Jobs/2024/Shoot/one.mov"));
    EXPECT_THAT(events, ElementsAre("finished 2 0 0 0"));
    EXPECT_THAT(
        logged(),
        ElementsAre("Destination set to Jobs/2024", "Added Shoot: 2 files, 250 bytes",
                    "Sending Jobs/2024/Shoot/one.mov: 250 bytes, 3 of 3 chunks to send",
                    "Landed and checked: Jobs/2024/Shoot/one.mov",
                    "Sending Jobs/2024/Shoot/two.mov: 0 bytes, 0 of 0 chunks to send",
                    "Landed and checked: Jobs/2024/Shoot/two.mov",
                    "Finished: 2 files landed and checked, 0 failed, 0 skipped, 0 waiting on a decision"));
    EXPECT_EQ(engine->overall().bytesDone, 250);
    EXPECT_EQ(saved()->items[0].doneChunks.size(), 3U);
}

TEST_F(TransferEngineLifecycle, StartTwiceMakesOneTickerAndOneMonitor) {
    engine->start(true);
    engine->start(true);
    loop.settle();
    EXPECT_EQ(monitorsMade, 1);
    EXPECT_EQ(loop.scope.live(), 0U);
    network->set(false);
    loop.settle();
    EXPECT_EQ(engine->hold(), "Waiting for the network");
    network->set(true);
    loop.settle();
    EXPECT_EQ(engine->hold(), std::nullopt);
}

TEST_F(TransferEngineLifecycle, CarriesOnAfterARestartWithTheChunksThatTheVarkHolds) {
    std::filesystem::path file = write("long.mov", 1000);
    engine->start(false);
    add({file});
    loop.advance(350ms);
    engine->pauseForQuit();
    engine->flush();
    EXPECT_EQ(saved()->items[0].state, ItemState::queued);
    EXPECT_TRUE(saved()->items[0].uploadID);
    std::size_t held = vark->uploads.at("u1").have.size();
    EXPECT_GT(held, 0U);
    vark->calls.clear();

    makeEngine();
    engine->start(false);
    loop.advance(10s);
    EXPECT_THAT(states(), ElementsAre("verified"));
    EXPECT_EQ(vark->count("chunk"), static_cast<int>(10 - held));
    EXPECT_THAT(logged(), Contains("Picked up the saved queue: 1 file for the vark root"));
    EXPECT_THAT(logged(), Contains(HasSubstr("Resuming long.mov: 1 KB")));
    EXPECT_FALSE(item("long.mov").alreadyThere);
}

TEST_F(TransferEngineLifecycle, AnUnreadableQueueStartsEmptyAndStaysUntilTheNextSave) {
    std::ofstream(folder.path() / "queue.json") << "{\"job\":";
    engine->start(false);
    loop.advance(60s);
    EXPECT_FALSE(engine->job());
    EXPECT_THAT(logged(), IsEmpty());
    std::stringstream text;
    text << std::ifstream(folder.path() / "queue.json").rdbuf();
    EXPECT_EQ(text.str(), "{\"job\":");
    engine->ensureJob("", "", "");
    loop.advance(1s);
    EXPECT_TRUE(saved());
}

TEST_F(TransferEngineLifecycle, SavesAreGatheredToOneASecondAndAFlushIsAtOnce) {
    engine->start(false);
    engine->setTitle("nothing to name yet");
    EXPECT_FALSE(saved());
    engine->ensureJob("One", "", "");
    loop.advance(900ms);
    EXPECT_FALSE(saved());
    engine->setTitle("Two");
    loop.advance(100ms);
    EXPECT_EQ(saved()->title, "Two");
    engine->setTitle("Three");
    engine->flush();
    EXPECT_EQ(saved()->title, "Three");
    loop.advance(5s);
    EXPECT_EQ(saved()->title, "Three");
}

TEST_F(TransferEngineLifecycle, NoMoreFilesAtOnceThanAllowedAndInQueueOrder) {
    std::vector<std::filesystem::path> files;
    for (int i = 0; i < 10; ++i)
        files.push_back(write("f" + std::to_string(i), 100));
    engine->start(false);
    add(files);
    EXPECT_EQ(engine->activeItemIDs().size(), 4U);
    loop.advance(10s);
    std::vector<std::string> begins;
    for (const std::string& call : vark->calls) {
        if (call.starts_with("begin")) begins.push_back(call);
    }
    ASSERT_EQ(begins.size(), 10U);
    begins.resize(4);
    EXPECT_THAT(begins, ::testing::UnorderedElementsAre("begin f0", "begin f1", "begin f2", "begin f3"));
    EXPECT_LE(vark->mostChunksInFlight, 3);
}

TEST_F(TransferEngineLifecycle, RateNeedsThreeSamplesAndTimeLeftFollowsIt) {
    vark->chunkTime = 1s;
    std::filesystem::path file = write("long.mov", 10'000);
    engine->start(false);
    add({file});
    EXPECT_EQ(engine->overall().rate, 0);
    loop.advance(10s);
    // Three slots of 100 bytes a second.
    EXPECT_NEAR(engine->overall().rate, 300, 40);
    EXPECT_NEAR(*engine->overall().secondsLeft, 7000.0 / 300, 6);
    engine->pause();
    EXPECT_EQ(engine->overall().rate, 0);
    EXPECT_FALSE(engine->overall().secondsLeft);
}

TEST_F(TransferEngineLifecycle, DroppingTheEngineEndsItsTasksAndLosesNothingOnDisk) {
    std::filesystem::path file = write("long.mov", 10'000);
    engine->start(false);
    add({file});
    loop.advance(1200ms);
    engine.reset();
    EXPECT_EQ(vark->chunksInFlight, 0);
    EXPECT_FALSE(loop.clock.nextDeadline());
    EXPECT_EQ(saved()->items[0].state, ItemState::queued);
    EXPECT_FALSE(saved()->items[0].doneChunks.empty());
}

}  // namespace
}  // namespace vark::test
