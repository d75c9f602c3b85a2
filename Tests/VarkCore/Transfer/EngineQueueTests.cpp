#include <future>
#include <random>
#include <set>

#include "EngineFixture.h"

namespace vark::test {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;

class EngineQueue : public EngineTest {
  protected:
    /// The totals as one pass over all items gives them.
    void expectTotalsOfAFullPass() {
        engine->recompute();
        Overall whole;
        std::map<UUID, EntryProgress> entries;
        for (const TransferEntry& entry : engine->job()->entries)
            entries[entry.id];
        for (const TransferItem& one : engine->job()->items) {
            EntryProgress& entry = entries[one.entryID];
            const std::int64_t done = std::min(one.size, one.bytesDone() + engine->inFlightBytes(one.id));
            ++whole.filesTotal;
            ++entry.files;
            whole.bytesTotal += one.size;
            entry.bytesTotal += one.size;
            whole.bytesDone += done;
            entry.bytesDone += done;
            whole.filesVerified += one.state == ItemState::verified;
            entry.verified += one.state == ItemState::verified;
            whole.bytesVerified += one.state == ItemState::verified ? one.size : 0;
            whole.filesFailed += one.state == ItemState::failed;
            entry.failed += one.state == ItemState::failed;
            whole.filesConflict += one.state == ItemState::conflict;
            entry.conflicts += one.state == ItemState::conflict;
            whole.filesSkipped += one.state == ItemState::skipped;
            entry.skipped += one.state == ItemState::skipped;
            entry.inFlight += isInFlight(one.state);
            entry.hashing += one.state == ItemState::hashing;
        }
        Overall published = engine->overall();
        published.rate = 0;
        published.secondsLeft.reset();
        EXPECT_EQ(published, whole);
        const auto& kept = engine->entryProgress();
        EXPECT_EQ((std::map<UUID, EntryProgress>(kept.begin(), kept.end())), entries);
    }
};

TEST_F(EngineQueue, TheSameThingIsAddedOnceHoweverItIsSpelled) {
    const std::filesystem::path file = write("Shoot/a.mov", 10);
    const std::filesystem::path shoot = file.parent_path();
    const std::filesystem::path nowhere = folder.path() / "nowhere";
    engine->start(false);
    const TransferEngine::Added first = add({nowhere, shoot});
    EXPECT_EQ(first.items, 1);
    ASSERT_EQ(first.notAdded.size(), 1U);
    EXPECT_THAT(first.notAdded[0].sentence, HasSubstr("Could not add " + nowhere.string()));
    EXPECT_FALSE(first.notAdded[0].isInQueue);
    const TransferEngine::Added again = add({shoot / "", shoot / "." / "", shoot / "../x/../Shoot"});
    EXPECT_EQ(again.items, 0);
    EXPECT_EQ(again.notAdded.size(), 3U);
    EXPECT_THAT(again.notAdded, Each(Field(&TransferEngine::NotAdded::isInQueue, true)));
    EXPECT_EQ(engine->job()->title, "Shoot");
    EXPECT_EQ(item("a.mov").localPath, file.string());
    EXPECT_EQ(item("a.mov").relativePath, "Shoot/a.mov");
}

TEST_F(EngineQueue, WhatIsInTheQueueIsLookedThroughAgain) {
    const std::filesystem::path shoot = write("Shoot/failing.mov", 10).parent_path();
    engine->start(false);
    vark->failures["finish"].push_back(VarkAPIError::server(400));
    const UUID entry = add({shoot}).entries.at(0);
    loop.advance(5s);
    ASSERT_EQ(engine->overall().filesFailed, 1);
    write("Shoot/same.mov", 10);
    write("Shoot/changed.mov", 10);
    EXPECT_EQ(add({shoot}).items, 2);
    loop.advance(5s);

    write("Shoot/changed.mov", 20);
    write("Shoot/failing.mov", 30);
    write("Shoot/sub/new.mov", 40);
    write("Shoot/.hidden", 50);
    write("Other/other.mov", 60);
    engine->setHold("sleep", "Asleep");
    const TransferEngine::Added added = add({shoot, shoot, shoot.parent_path() / "Other"});
    EXPECT_EQ(added.items, 2);
    EXPECT_EQ(added.again, 2);
    EXPECT_THAT(added.entries, ElementsAre(entry, entry, engine->job()->entries.at(1).id));
    const Walker::PassedOver hidden{"Shoot/.hidden", Walker::PassedOver::Kind::hidden};
    EXPECT_THAT(added.passedOver, ElementsAre(hidden, hidden));
    EXPECT_EQ(item("new.mov").entryID, entry);
    EXPECT_EQ(item("new.mov").localPath, (shoot / "sub/new.mov").string());
    EXPECT_EQ(item("same.mov").state, ItemState::verified);
    EXPECT_EQ(item("changed.mov").state, ItemState::queued);
    EXPECT_EQ(item("failing.mov").error, std::nullopt);
    EXPECT_EQ(engine->job()->entries[0].fileCount, 4);
    expectTotalsOfAFullPass();

    EXPECT_EQ(add({shoot}, {.hidden = true}).items, 1);
    std::filesystem::remove_all(shoot);
    const TransferEngine::Added gone = add({shoot});
    EXPECT_THAT(gone.entries, ElementsAre(entry));
    EXPECT_TRUE(gone.notAdded.at(0).isInQueue);
}

TEST_F(EngineQueue, NothingIsAddedByAWalkThatIsCancelledOrWhenTheRunIsEnding) {
    const std::filesystem::path shoot = write("Shoot/a.mov", 10).parent_path();
    engine->start(false);
    TaskHandle<TransferEngine::Added> walk = loop.start(engine->add({shoot, shoot / "a.mov"}));
    walk.cancel();
    loop.settle();
    EXPECT_THROW(walk.result(), CancellationError);
    EXPECT_FALSE(engine->job());

    std::promise<void> gate;
    volumes.asked = [open = gate.get_future().share()] { open.wait(); };
    walk = loop.start(engine->add({shoot}));
    loop.executor.runReady();
    engine->pauseForQuit();
    gate.set_value();
    loop.settle();
    EXPECT_THAT(walk.result().notAdded.at(0).sentence, HasSubstr("this run is ending"));
    EXPECT_FALSE(engine->job());
}

TEST_F(EngineQueue, TheVarkIsToldOfWhatIsGivenUpForAsLongAsItIsWaitedFor) {
    std::vector<std::filesystem::path> files;
    for (int i = 0; i < 4; ++i)
        files.push_back(write(fmt::format("f{}", i), 100'000));
    engine->start(false);
    const std::vector<UUID> entries = add(files).entries;
    loop.advance(1s);
    vark->cancelTime = 7s;
    engine->remove(std::unordered_set<UUID>(entries.begin(), entries.end()));
    engine->pauseForQuit();
    const Instant begun = loop.clock.now();
    EXPECT_THROW(loop.run(withTimeout(Duration(5s), engine->serverCancelsDone())), TimeoutError);
    EXPECT_EQ(loop.clock.now() - begun, 5s);
    EXPECT_EQ(vark->uploads.size(), 4U);
    loop.run(engine->serverCancelsDone());
    EXPECT_EQ(vark->uploads.size(), 0U);
}

TEST_F(EngineQueue, ClearingTakesFinishedEntriesAndClearingAllTakesTheFileToo) {
    std::filesystem::create_directories(folder.path() / "files" / "Empty");
    engine->start(false);
    add({write("good", 100), write("bad", 100), write("long", 100'000), folder.path() / "files" / "Empty"});
    vark->failures["finish"].push_back(VarkAPIError::server(400));
    loop.advance(2s);
    engine->clearFinished();
    EXPECT_EQ(engine->job()->entries.size(), 2U);
    EXPECT_EQ(vark->count("cancel"), 0);
    expectTotalsOfAFullPass();
    engine->clearAll();
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "queue.json"));
    loop.advance(2s);
    EXPECT_EQ(vark->count("cancel"), 2);
    EXPECT_FALSE(engine->job());
    EXPECT_EQ(vark->chunksInFlight, 0);
    EXPECT_EQ(engine->overall(), Overall());
}

TEST_F(EngineQueue, TheTotalsKeptAreThoseOfAFullPassWhateverHappens) {
    std::mt19937 random(7);
    auto roll = [&](std::size_t sides) {
        return std::uniform_int_distribution<std::size_t>(0, sides - 1)(random);
    };
    engine->start(false);
    vark->chunkTime = 70ms;
    int named = 0;
    const std::function<void()> addABatch = [&] {
        const std::string name = fmt::format("batch{}", named++);
        for (std::size_t file = 0, files = 1 + roll(4); file < files; ++file)
            write(fmt::format("{}/{}", name, file), roll(700), static_cast<char>(file));
        add({folder.path() / "files" / name});
    };
    const std::function<void()> happenings[] = {
        addABatch,
        addABatch,
        addABatch,
        [&] {
            vark->failures["chunk"].push_back(roll(2) != 0 ? VarkAPIError::uploadGone()
                                                           : VarkAPIError::server(500));
        },
        [&] { vark->failures["begin"].push_back(VarkAPIError::server(400)); },
        [&] {
            if (!engine->job() || engine->job()->entries.empty()) return;
            engine->remove(engine->job()->entries[roll(engine->job()->entries.size())].id);
        },
        [&] { engine->isPaused() ? engine->resume() : engine->pause(); },
        [&] { engine->hold() ? engine->clearHold("sleep") : engine->setHold("sleep", "Asleep"); },
        [&] { engine->retryFailed(); },
        [&] {
            vark->files[fmt::format("batch{}/0", named)] = "something else";
            engine->resolveAllConflicts(std::nullopt, roll(2) != 0);
        },
        [&] { engine->clearFinished(); },
        [&] { loop.advance(std::chrono::milliseconds(roll(400))); },
    };
    for (int round = 0; round < 300; ++round) {
        happenings[roll(std::size(happenings))]();
        if (engine->job()) expectTotalsOfAFullPass();
    }
    engine->clearHold("sleep");
    engine->resume();
    vark->failures.clear();
    engine->retryFailed();
    engine->resolveAllConflicts(std::nullopt, true);
    loop.advance(600s);
    engine->resolveAllConflicts(std::nullopt, true);
    loop.advance(60s);
    expectTotalsOfAFullPass();
    EXPECT_TRUE(engine->overall().allSettled());
    EXPECT_EQ(engine->overall().filesVerified + engine->overall().filesSkipped, engine->overall().filesTotal);
}

TEST(IndexSet, FindsTheLowestMemberAcrossItsLevels) {
    IndexSet set;
    std::set<std::size_t> model;
    std::mt19937 random(3);
    for (int round = 0; round < 20'000; ++round) {
        const std::size_t index =
            std::uniform_int_distribution<std::size_t>(0, 1 << (round % 20 + 1))(random);
        if (round % 3 != 0) {
            set.insert(index);
            model.insert(index);
        } else if (!model.empty()) {
            const std::size_t goes = round % 2 != 0 ? index : *model.begin();
            set.erase(goes);
            model.erase(goes);
        }
        ASSERT_EQ(set.first(), model.empty() ? std::nullopt : std::optional(*model.begin()));
    }
}

TEST_F(EngineQueue, OfACardIsKeptWhatBecameOfEachFileThatLeavesTheList) {
    using Kind = IngestInfo::Unlisted::Kind;
    const std::filesystem::path card = folder.path() / "files" / "CARD";
    write("CARD/A/1.mov", 100);
    write("CARD/B/2.mov", 100);
    write("CARD/C/3.mov", 100, 'c');
    engine->start(false);
    IngestInfo info;
    info.volumePath = card;
    engine->setIngest(info);
    engine->maxConcurrentFiles = 1;
    add({card});
    loop.advance(150ms);
    engine->leaveOut({"C", "A"});
    EXPECT_THAT(states(), ElementsAre("verified", "uploading"));
    EXPECT_THAT(engine->job()->ingest->leftOut, ElementsAre("C", "A"));
    expectTotalsOfAFullPass();

    const double landedAt = item("1.mov").mtime;
    const double waitedAt = item("2.mov").mtime;
    engine->remove(engine->job()->entries.at(0).id);
    EXPECT_THAT(engine->job()->ingest->unlisted,
                ElementsAre(IngestInfo::Unlisted{Kind::landed, "A/1.mov", 100, landedAt},
                            IngestInfo::Unlisted{Kind::removed, "B/2.mov", 100, waitedAt}));
    loop.advance(2s);
    EXPECT_EQ(saved()->ingest, engine->job()->ingest);
}

}  // namespace
}  // namespace vark::test
