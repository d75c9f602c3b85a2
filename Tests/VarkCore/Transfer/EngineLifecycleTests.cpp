#include "EngineFixture.h"

namespace vark::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

class TransferEngineLifecycle : public EngineTest {};

TEST_F(TransferEngineLifecycle, SendsWhatWasAddedAndSaysSo) {
    write("Shoot/one.mov", 250);
    write("Shoot/two.mov", 0);
    engine->maxConcurrentFiles = 1;
    engine->start(false);
    engine->setDestination("//Jobs//2024/");
    EXPECT_EQ(add({folder.path() / "files" / "Shoot"}).items, 2);
    EXPECT_THAT(statesAfter(5s), ElementsAre("verified", "verified"));
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
    EXPECT_THAT(statesAfter(10s), ElementsAre("verified"));
    EXPECT_EQ(vark->count("chunk"), static_cast<int>(10 - held));
    EXPECT_FALSE(item("long.mov").alreadyThere);
}

}  // namespace
}  // namespace vark::test
