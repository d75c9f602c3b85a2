#include <random>
#include <set>

#include "EngineFixture.h"
#include "QueueShadow.h"

namespace vark::test {
namespace {

using namespace std::chrono_literals;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Field;

class EngineQueue : public EngineTest {
  protected:
    static void count(EntryProgress& sum, const TransferItem& one, std::int64_t inFlight) {
        ++sum.files;
        sum.bytesTotal += one.size;
        sum.bytesDone += std::min(one.size, one.bytesDone() + inFlight);
        sum.verified += one.state == ItemState::verified;
        if (one.state == ItemState::verified) sum.bytesVerified += one.size;
        sum.failed += one.state == ItemState::failed;
        sum.conflicts += one.state == ItemState::conflict;
        sum.skipped += one.state == ItemState::skipped;
        sum.changed += one.changedWhileSent;
        sum.inFlight += isInFlight(one.state);
        sum.hashing += one.state == ItemState::hashing;
    }
    /// The totals as one pass over all items gives them.
    void expectTotalsOfAFullPass() {
        engine->recompute();
        const Overall published = engine->overall();
        std::unordered_map<UUID, EntryProgress> entries;
        EntryProgress all;
        std::int64_t verified = 0;
        for (const TransferEntry& entry : engine->job()->entries)
            entries[entry.id];
        for (const TransferItem& one : engine->job()->items) {
            count(entries[one.entryID], one, engine->inFlightBytes(one.id));
            count(all, one, engine->inFlightBytes(one.id));
            if (one.state == ItemState::verified) verified += one.size;
        }
        EXPECT_EQ(engine->entryProgress(), entries);
        const Overall whole{all.bytesTotal,       all.bytesDone, all.files,   all.verified, all.failed,
                            all.conflicts,        all.skipped,   all.changed, verified,     published.rate,
                            published.secondsLeft};
        for (std::size_t place = 0; place < engine->job()->items.size(); ++place) {
            const ItemState state = engine->job()->items[place].state;
            EXPECT_EQ(engine->failedItems().next(place) == place, state == ItemState::failed);
            EXPECT_EQ(engine->conflicts().next(place) == place, state == ItemState::conflict);
        }
        EXPECT_EQ(published, whole);
    }
};

TEST_F(EngineQueue, TheSameThingIsAddedOnceHoweverItIsSpelled) {
    const std::filesystem::path shoot = write("Shoot/a.mov", 10).parent_path();
    engine->start(false);
    const TransferEngine::Added first = add({folder.path() / "nowhere", shoot});
    EXPECT_EQ(first.items, 1);
    ASSERT_EQ(first.notAdded.size(), 1U);
    EXPECT_FALSE(first.notAdded[0].isInQueue);
    const TransferEngine::Added again = add({shoot / "", shoot / "." / "", shoot / "../x/../Shoot"});
    EXPECT_EQ(again.items, 0);
    EXPECT_EQ(again.notAdded.size(), 3U);
    EXPECT_THAT(again.notAdded, Each(Field(&TransferEngine::NotAdded::isInQueue, true)));
    EXPECT_EQ(item("a.mov").localPath, (shoot / "a.mov").string());
    EXPECT_EQ(item("a.mov").relativePath, "Shoot/a.mov");
}

TEST_F(EngineQueue, WhatIsInTheQueueIsLookedThroughAgain) {
    const std::filesystem::path shoot = write("Shoot/failing.mov", 10).parent_path();
    engine->start(false);
    vark->failures["finish"].push_back(VarkAPIError::server(400));
    const UUID entry = add({shoot}).entries.at(0);
    loop.advance(5s);
    write("Shoot/same.mov", 10);
    write("Shoot/changed.mov", 10);
    EXPECT_EQ(add({shoot}).items, 2);
    loop.advance(5s);

    write("Shoot/changed.mov", 20);
    write("Shoot/failing.mov", 30);
    write("Shoot/sub/new.mov", 40);
    write("Shoot/.hidden", 50);
    engine->setHold("sleep", "Asleep");
    const TransferEngine::Added added = add({shoot, shoot, write("other.mov", 60)});
    EXPECT_EQ(added.items, 2);
    EXPECT_EQ(added.again, 2);
    EXPECT_THAT(states(), ElementsAre("queued", "queued", "verified", "queued", "queued"));
    EXPECT_EQ(item("failing.mov").error, std::nullopt);
    EXPECT_EQ(item("new.mov").entryID, entry);
    expectTotalsOfAFullPass();

    EXPECT_EQ(add({shoot}, {.hidden = true}).items, 1);
}

TEST_F(EngineQueue, NothingIsAddedByAWalkThatIsCancelled) {
    const std::filesystem::path shoot = write("Shoot/a.mov", 10).parent_path();
    engine->start(false);
    const TaskHandle<TransferEngine::Added> walk = loop.start(engine->add({shoot, shoot / "a.mov"}));
    walk.cancel();
    loop.settle();
    EXPECT_THROW(walk.result(), CancellationError);
    EXPECT_FALSE(engine->job());
}

TEST_F(EngineQueue, ClearingTakesFinishedEntriesAndClearingAllTakesTheFileToo) {
    engine->start(false);
    add({write("good", 100), write("bad", 100), write("long", 100'000)});
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

TEST_F(EngineQueue, CarriesOnAfterARestartWithTheChunksThatTheVarkHolds) {
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

TEST_F(EngineQueue, DecisionsAreMadeForTheConflictsOfTheirEntryAlone) {
    for (const char* name : {"a/1", "a/2", "b/3", "b/4"}) {
        write(name, 10);
        vark->files[name] = "another";
    }
    vark->files.erase("b/3");
    engine->start(false);
    const UUID first = add({folder.path() / "files/a"}).entries.at(0);
    add({folder.path() / "files/b"});
    loop.advance(5s);
    // A restart finds them again.
    engine->flush();
    makeEngine();
    engine->open();
    engine->resolveAllConflicts(first, false);
    EXPECT_THAT(states(), ElementsAre("skipped", "skipped", "verified", "conflict"));
    EXPECT_EQ(engine->conflicts().first(), 3);
}

TEST_F(EngineQueue, TheTotalsKeptAreThoseOfAFullPassWhateverHappens) {
    std::mt19937 random(7);
    const auto roll = [&](std::size_t sides) { return random() % sides; };
    QueueShadow shadow(*engine);
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
        [&] { vark->failures["chunk"].push_back(VarkAPIError::uploadGone()); },
        [&] { vark->failures["chunk"].push_back(VarkAPIError::server(500)); },
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
        shadow.expectTheQueue();
    }
    engine->clearHold("sleep");
    engine->resume();
    vark->failures.clear();
    engine->retryFailed();
    for (int round = 0; round < 2; ++round) {
        engine->resolveAllConflicts(std::nullopt, true);
        loop.advance(600s);
    }
    expectTotalsOfAFullPass();
    EXPECT_TRUE(engine->overall().allSettled());
    EXPECT_EQ(engine->overall().filesVerified + engine->overall().filesSkipped, engine->overall().filesTotal);
}

TEST(IndexSet, FindsTheLowestMemberAcrossItsLevels) {
    IndexSet set;
    std::set<std::size_t> model;
    std::mt19937 random(3);
    for (unsigned round = 0; round < 20'000; ++round) {
        const std::size_t index = random() % (2U << round % 20);
        if (round % 3 != 0) {
            set.insert(index);
            model.insert(index);
        } else if (!model.empty()) {
            const std::size_t goes = round % 2 != 0 ? index : *model.begin();
            set.erase(goes);
            model.erase(goes);
        }
        ASSERT_EQ(set.first(), model.empty() ? std::nullopt : std::optional(*model.begin()));
        const auto next = model.lower_bound(index);
        ASSERT_EQ(set.next(index), next == model.end() ? std::nullopt : std::optional(*next));
    }
}

TEST_F(EngineQueue, OfACardIsKeptWhatBecameOfEachFileThatLeavesTheList) {
    using Kind = IngestInfo::Unlisted::Kind;
    const std::filesystem::path card = folder.path() / "files" / "CARD";
    write("CARD/A/1.mov", 100);
    write("CARD/B/2.mov", 100);
    write("CARD/C/3.mov", 100, 'c');
    engine->start(false);
    engine->setIngest(IngestInfo{.volumePath = card});
    engine->maxConcurrentFiles = 1;
    add({card});
    loop.advance(150ms);
    engine->leaveOut({"C", "A"});
    EXPECT_THAT(states(), ElementsAre("verified", "uploading"));
    EXPECT_THAT(engine->job()->ingest->leftOut, ElementsAre("C", "A"));
    expectTotalsOfAFullPass();

    const IngestInfo::Unlisted landed{Kind::landed, "A/1.mov", 100, item("1.mov").mtime};
    const IngestInfo::Unlisted waited{Kind::removed, "B/2.mov", 100, item("2.mov").mtime};
    engine->remove(engine->job()->entries.at(0).id);
    EXPECT_THAT(engine->job()->ingest->unlisted, ElementsAre(landed, waited));
    loop.advance(2s);
    EXPECT_EQ(saved()->ingest, engine->job()->ingest);
}

}  // namespace
}  // namespace vark::test
