#include <future>
#include <random>
#include <set>

#include "EngineFixture.h"
#include "QueueShadow.h"

namespace vark::test {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

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
            std::int64_t done = std::min(one.size, one.bytesDone() + engine->inFlightBytes(one.id));
            ++whole.filesTotal;
            ++entry.files;
            whole.bytesTotal += one.size;
            entry.bytesTotal += one.size;
            whole.bytesDone += done;
            entry.bytesDone += done;
            whole.filesVerified += one.state == ItemState::verified;
            entry.verified += one.state == ItemState::verified;
            whole.bytesVerified += one.state == ItemState::verified ? one.size : 0;
            entry.bytesVerified += one.state == ItemState::verified ? one.size : 0;
            whole.filesFailed += one.state == ItemState::failed;
            entry.failed += one.state == ItemState::failed;
            whole.filesConflict += one.state == ItemState::conflict;
            entry.conflicts += one.state == ItemState::conflict;
            whole.filesSkipped += one.state == ItemState::skipped;
            entry.skipped += one.state == ItemState::skipped;
            entry.inFlight += isInFlight(one.state);
            entry.hashing += one.state == ItemState::hashing;
        }
        const auto is = [this](std::size_t place, ItemState state) {
            return engine->job()->items[place].state == state;
        };
        for (std::size_t place = 0; place < engine->job()->items.size(); ++place) {
            EXPECT_EQ(engine->failedItems().next(place) == place, is(place, ItemState::failed));
            EXPECT_EQ(engine->conflicts().next(place) == place, is(place, ItemState::conflict));
        }
        Overall published = engine->overall();
        published.rate = 0;
        published.secondsLeft.reset();
        EXPECT_EQ(published, whole);
        EXPECT_EQ(
            (std::map<UUID, EntryProgress>(engine->entryProgress().begin(), engine->entryProgress().end())),
            entries);
    }
};

TEST_F(EngineQueue, TheSameThingIsAddedOnceHoweverItIsSpelled) {
    std::filesystem::path file = write("Shoot/a.mov", 10);
    engine->start(false);
    EXPECT_EQ(add({file.parent_path()}).items, 1);
    TransferEngine::Added again =
        add({file.parent_path() / "", file.parent_path() / "." / "", folder.path() / "files/x/../Shoot"});
    EXPECT_EQ(again.items, 0);
    EXPECT_THAT(again.notAdded, testing::SizeIs(3));
    for (const TransferEngine::NotAdded& path : again.notAdded) {
        EXPECT_THAT(path.sentence, HasSubstr("Already in the queue: "));
        EXPECT_TRUE(path.isInQueue);
    }
    EXPECT_EQ(engine->job()->title, "Shoot");
    EXPECT_EQ(item("a.mov").localPath, file.string());
    EXPECT_EQ(item("a.mov").relativePath, "Shoot/a.mov");
}

TEST_F(EngineQueue, WhatIsInTheQueueIsLookedThroughAgain) {
    const std::filesystem::path shoot = write("Shoot/same.mov", 10).parent_path();
    write("Shoot/changed.mov", 10);
    write("Shoot/failing.mov", 10);
    engine->start(false);
    const UUID entry = add({shoot}).entries.at(0);
    vark->lasting.emplace("finish", VarkAPIError::server(400));
    loop.advance(5s);
    vark->lasting.clear();
    engine->retryFailed();
    vark->failures["finish"].push_back(VarkAPIError::server(400));
    loop.advance(5s);
    ASSERT_EQ(engine->overall().filesFailed, 1);
    const std::string failing(
        std::ranges::find(engine->job()->items, ItemState::failed, &TransferItem::state)->name());

    write("Shoot/changed.mov", 20);
    write("Shoot/" + failing, 30);
    write("Shoot/sub/new.mov", 40);
    write("Shoot/.hidden", 50);
    write("Other/other.mov", 60);
    engine->setHold("sleep", "Asleep");
    const TransferEngine::Added added = add({shoot, shoot, shoot.parent_path() / "Other"});
    EXPECT_EQ(added.items, 2);
    EXPECT_EQ(added.again, failing == "changed.mov" ? 1 : 2);
    EXPECT_THAT(added.entries, ElementsAre(entry, entry, engine->job()->entries.at(1).id));
    EXPECT_THAT(added.passedOver,
                ElementsAre(Walker::PassedOver{"Shoot/.hidden", Walker::PassedOver::Kind::hidden},
                            Walker::PassedOver{"Shoot/.hidden", Walker::PassedOver::Kind::hidden}));
    EXPECT_EQ(item("new.mov").entryID, entry);
    EXPECT_EQ(item("new.mov").localPath, (shoot / "sub/new.mov").string());
    EXPECT_EQ(item("same.mov").state, failing == "same.mov" ? ItemState::queued : ItemState::verified);
    EXPECT_EQ(item("changed.mov").state, ItemState::queued);
    EXPECT_EQ(item(failing).error, std::nullopt);
    EXPECT_EQ(engine->job()->entries[0].fileCount, 4);
    expectTotalsOfAFullPass();

    Walker::Options options;
    options.hidden = true;
    TaskHandle<TransferEngine::Added> hidden = loop.start(engine->add({shoot}, options));
    loop.settle();
    EXPECT_EQ(hidden.result().items, 1);
    std::filesystem::remove_all(shoot);
    const TransferEngine::Added gone = add({shoot});
    EXPECT_THAT(gone.entries, ElementsAre(entry));
    EXPECT_THAT(gone.notAdded.at(0).sentence, HasSubstr("Could not add " + shoot.string()));
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
    EXPECT_EQ(walk.result().items, 0);
    EXPECT_THAT(walk.result().notAdded.at(0).sentence, HasSubstr("this run is ending"));
    EXPECT_FALSE(engine->job());
}

TEST_F(EngineQueue, TheVarkIsToldOfWhatIsGivenUpForAsLongAsItIsWaitedFor) {
    std::vector<std::filesystem::path> files;
    for (int i = 0; i < 4; ++i)
        files.push_back(write("f" + std::to_string(i), 100'000));
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

TEST_F(EngineQueue, APathThatCannotBeAddedIsToldAndTheOthersGoOn) {
    engine->start(false);
    TransferEngine::Added added = add({folder.path() / "nowhere", write("a.mov", 10)});
    EXPECT_EQ(added.items, 1);
    ASSERT_THAT(added.notAdded, testing::SizeIs(1));
    EXPECT_THAT(added.notAdded[0].sentence,
                HasSubstr("Could not add " + (folder.path() / "nowhere").string()));
    EXPECT_FALSE(added.notAdded[0].isInQueue);
    EXPECT_THAT(logged(), Contains(HasSubstr("Could not add ")));
    EXPECT_TRUE(engine->job());
}

TEST_F(EngineQueue, ClearingTakesFinishedEntriesAndClearingAllTakesTheFileToo) {
    std::vector<std::filesystem::path> files = {write("good", 100), write("bad", 100),
                                                write("long", 100'000)};
    engine->start(false);
    add(files);
    std::filesystem::create_directories(folder.path() / "files" / "Empty");
    add({folder.path() / "files" / "Empty"});
    vark->failures["finish"].push_back(VarkAPIError::server(400));
    loop.advance(2s);
    engine->clearFinished();
    EXPECT_EQ(engine->job()->entries.size(), 2U);
    EXPECT_THAT(logged(), Contains("Removed Empty from the queue"));
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
    auto roll = [&](int sides) { return std::uniform_int_distribution<int>(0, sides - 1)(random); };
    QueueShadow shadow(*engine);
    engine->start(false);
    vark->chunkTime = 70ms;
    int named = 0;
    for (int round = 0; round < 300; ++round) {
        switch (roll(12)) {
            case 0:
            case 1:
            case 2: {
                std::string name = fmt::format("batch{}", named++);
                for (int i = roll(4); i >= 0; --i) {
                    write(fmt::format("{}/{}", name, i), static_cast<std::size_t>(roll(700)),
                          static_cast<char>(i));
                }
                add({folder.path() / "files" / name});
                break;
            }
            case 3:
                vark->failures["chunk"].push_back(roll(2) != 0 ? VarkAPIError::uploadGone()
                                                               : VarkAPIError::server(500));
                break;
            case 4:
                vark->failures["begin"].push_back(VarkAPIError::server(400));
                break;
            case 5:
                if (engine->job() && !engine->job()->entries.empty()) {
                    std::size_t which =
                        static_cast<std::size_t>(roll(static_cast<int>(engine->job()->entries.size())));
                    engine->remove(engine->job()->entries[which].id);
                }
                break;
            case 6:
                engine->isPaused() ? engine->resume() : engine->pause();
                break;
            case 7:
                engine->hold() ? engine->clearHold("sleep") : engine->setHold("sleep", "Asleep");
                break;
            case 8:
                engine->retryFailed();
                break;
            case 9:
                vark->files[fmt::format("batch{}/0", named)] = "something else";
                engine->resolveAllConflicts(std::nullopt, roll(2) != 0);
                break;
            case 10:
                engine->clearFinished();
                break;
            default:
                loop.advance(std::chrono::milliseconds(roll(400)));
        }
        if (engine->job()) expectTotalsOfAFullPass();
        shadow.expectTheQueue();
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
        std::size_t index = std::uniform_int_distribution<std::size_t>(0, 1 << (round % 20 + 1))(random);
        if (round % 3 != 0) {
            set.insert(index);
            model.insert(index);
        } else if (!model.empty()) {
            std::size_t lowest = *model.begin();
            set.erase(round % 2 != 0 ? index : lowest);
            model.erase(round % 2 != 0 ? index : lowest);
        }
        std::optional<std::size_t> expected;
        if (!model.empty()) expected = *model.begin();
        ASSERT_EQ(set.first(), expected);
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
    IngestInfo info;
    info.drive = "CARD";
    info.volumePath = card;
    engine->start(false);
    engine->setIngest(info);
    engine->maxConcurrentFiles = 1;
    add({card});
    loop.advance(150ms);
    ASSERT_THAT(states(), ElementsAre("verified", "uploading", "queued"));
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
