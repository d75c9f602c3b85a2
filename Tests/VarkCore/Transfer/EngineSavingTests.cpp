#include <future>

#include "EngineFixture.h"

namespace vark::test {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;

class EngineSaving : public EngineTest {
  protected:
    bool saveIsDone() {
        TaskHandle<bool> handle = loop.start(engine->saved());
        loop.settle();
        return handle.result();
    }
};

Task<void> busy(BlockingPool& pool, std::shared_future<void> open) {
    co_await pool.run([open] { open.wait(); });
}

TEST_F(EngineSaving, OnADiskThatDoesNotAnswerOneSaveIsUnderWayAndNothingElseWaitsForIt) {
    BlockingPool disk(1);
    std::promise<void> answer;
    loop.start(busy(disk, answer.get_future().share()));
    loop.executor.runReady();
    makeEngine(3, &disk);
    for (int second = 0; second < 60; ++second) {
        send(fmt::format("f{}", second), 300);
        loop.advance(1s);
    }
    EXPECT_TRUE(engine->overall().allSettled());
    EXPECT_EQ(encodings, 1) << "each is a whole queue in memory";

    TaskHandle<bool> asked = loop.start(engine->saved());
    loop.settle();
    EXPECT_FALSE(asked.done());
    engine->setTitle("at the end");
    engine->pauseForQuit();
    EXPECT_TRUE(engine->flush());
    answer.set_value();
    disk.waitUntilIdle();
    loop.settle();
    EXPECT_TRUE(asked.result());
    EXPECT_EQ(saved()->title, "at the end");
    EXPECT_EQ(encodings, 2);
    engine.reset();
}

TEST_F(EngineSaving, ADiskThatTakesNoQueueIsToldOfAndTriedAgainUntilItDoes) {
    std::filesystem::create_directories(folder.path() / "queue.json");  // No file can be put there.
    send();
    EXPECT_FALSE(saveIsDone());
    EXPECT_FALSE(engine->flush());
    EXPECT_EQ(engine->saveFailure(),
              "Could not save the queue as " + (folder.path() / "queue.json").string() + ": it is a folder.");
    EXPECT_THAT(logged(), Contains(*engine->saveFailure()).Times(1));
    const int before = encodings;
    EXPECT_THAT(statesAfter(600s), ElementsAre("verified"));
    EXPECT_TRUE(engine->saveFailure());
    EXPECT_LT(encodings - before, 20) << "a full disk is not written to every second";

    std::filesystem::remove(folder.path() / "queue.json");
    loop.advance(61s);
    EXPECT_EQ(engine->saveFailure(), std::nullopt);
    EXPECT_EQ(saved()->items[0].state, ItemState::verified);
    engine->clearAll();
    EXPECT_TRUE(saveIsDone());
    EXPECT_EQ(saved(), std::nullopt);
}

}  // namespace
}  // namespace vark::test
