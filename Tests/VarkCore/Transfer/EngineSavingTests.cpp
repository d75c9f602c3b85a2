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

/// One thread that is busy until it is let go, as with a disk that does not answer.
class StuckPool {
  public:
    explicit StuckPool(TestLoop& loop) {
        loop.start(wait(pool, gate_.get_future().share()));
        loop.executor.runReady();
    }
    void letGo() {
        gate_.set_value();
        pool.waitUntilIdle();
    }
    BlockingPool pool{1};

  private:
    static Task<void> wait(BlockingPool& pool, std::shared_future<void> open) {
        co_await pool.run([open] { open.wait(); });
    }
    std::promise<void> gate_;
};

TEST_F(EngineSaving, SavesAreGatheredToOneASecondAndAFlushIsAtOnce) {
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
}

TEST_F(EngineSaving, OnADiskThatDoesNotAnswerOneSaveIsUnderWayAndNothingElseWaitsForIt) {
    StuckPool slow(loop);
    makeEngine(3, &slow.pool);
    engine->start(false);
    std::vector<std::filesystem::path> files;
    for (int i = 0; i < 40; ++i)
        files.push_back(write(fmt::format("f{}", i), 300));
    add(files);
    for (int second = 0; second < 60; ++second) {
        engine->setTitle(fmt::format("changed at {}", second));
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
    slow.letGo();
    loop.settle();
    EXPECT_TRUE(asked.result());
    EXPECT_EQ(saved()->title, "at the end");
    EXPECT_EQ(encodings, 2);
    engine.reset();
}

TEST_F(EngineSaving, WhoeverAsksWaitsForNothingButTheDisk) {
    send();
    EXPECT_FALSE(saved());
    TaskHandle<bool> first = loop.start(engine->saved());
    TaskHandle<bool> second = loop.start(engine->saved());
    loop.settle();
    EXPECT_TRUE(first.result() && second.result());
    EXPECT_EQ(saved()->items.size(), 1U);
    EXPECT_TRUE(saveIsDone());
    EXPECT_EQ(encodings, 1);
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
    loop.advance(600s);
    EXPECT_THAT(states(), ElementsAre("verified"));
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
