#include "EngineFixture.h"

namespace vark::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;

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

TEST_F(TransferEngineLifecycle, CarriesOnAfterARestartWithTheChunksThatTheVarkHolds) {
    send("long.mov", 1000);
    loop.advance(350ms);
    engine->pauseForQuit();
    engine->flush();
    EXPECT_EQ(saved()->items[0].state, ItemState::queued);
    EXPECT_TRUE(saved()->items[0].uploadID);
    const std::size_t held = vark->uploads.at("u1").have.size();
    EXPECT_GT(held, 0U);
    vark->calls.clear();

    makeEngine();
    engine->start(false);
    loop.advance(10s);
    EXPECT_THAT(states(), ElementsAre("verified"));
    EXPECT_EQ(vark->count("chunk"), static_cast<int>(10 - held));
    EXPECT_FALSE(item("long.mov").alreadyThere);
}

TEST_F(TransferEngineLifecycle, NoMoreFilesAtOnceThanAllowedAndInQueueOrder) {
    std::vector<std::filesystem::path> files;
    for (int i = 0; i < 10; ++i)
        files.push_back(write(fmt::format("f{}", i), 100));
    engine->start(false);
    add(files);
    EXPECT_EQ(engine->activeItemIDs().size(), 4U);
    EXPECT_THAT(vark->calls, IsSupersetOf({"begin f0", "begin f1", "begin f2", "begin f3"}));
    EXPECT_EQ(vark->count("begin"), 4);
    loop.advance(10s);
    EXPECT_EQ(vark->count("begin"), 10);
    EXPECT_LE(vark->mostChunksInFlight, 3);
}

TEST_F(TransferEngineLifecycle, RateNeedsThreeSamplesAndTimeLeftFollowsIt) {
    vark->chunkTime = 1s;
    send("long.mov", 10'000);
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
    send("long.mov", 10'000);
    loop.advance(1200ms);
    engine.reset();
    EXPECT_EQ(vark->chunksInFlight, 0);
    EXPECT_FALSE(loop.clock.nextDeadline());
    EXPECT_EQ(saved()->items[0].state, ItemState::queued);
    EXPECT_FALSE(saved()->items[0].doneChunks.empty());
}

}  // namespace
}  // namespace vark::test
