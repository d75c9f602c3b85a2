#include <sys/stat.h>

#include "EngineFixture.h"

namespace vark::test {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class ItemPipeline : public EngineTest {
  protected:
    void send(std::size_t size = 250, const std::string& name = "a.mov") {
        std::filesystem::path file = write(name, size);
        engine->start(false);
        add({file});
    }
};

TEST_F(ItemPipeline, AFileThatTheVarkHasCostsOneBegin) {
    std::filesystem::path file = write("a.mov", 250);
    vark->files["a.mov"] = FileHasher::sha256Of(file);
    engine->start(false);
    add({file});
    loop.advance(5s);
    EXPECT_THAT(vark->calls, ElementsAre("begin a.mov"));
    EXPECT_TRUE(item("a.mov").alreadyThere);
    EXPECT_TRUE(item("a.mov").finishedAt);
    EXPECT_THAT(logged(), Contains("Already in the vark, same hash: a.mov"));
}

TEST_F(ItemPipeline, AnUploadThatFinishedWhileAwayIsNotCalledAlreadyThere) {
    vark->checkingPolls = 1000;
    send();
    loop.advance(2s);
    EXPECT_THAT(states(), ElementsAre("checking"));
    engine->setHold("sleep", "Asleep");
    loop.settle();
    vark->files["a.mov"] = item("a.mov").sha256->text();
    engine->clearHold("sleep");
    loop.advance(2s);
    EXPECT_FALSE(item("a.mov").alreadyThere);
    EXPECT_THAT(logged(), Contains("Landed and checked (finished while away): a.mov"));
}

TEST_F(ItemPipeline, AConflictWaitsForItsDecision) {
    struct Case {
        bool replace;
        const char* state;
        const char* sentence;
    };
    for (const Case& one : {Case{true, "verified", "Will replace a.mov in the vark"},
                            Case{false, "skipped", "Left the vark's copy of a.mov"}}) {
        SCOPED_TRACE(one.sentence);
        engine->clearAll();
        vark->files["a.mov"] = "another hash";
        send();
        loop.advance(5s);
        EXPECT_THAT(states(), ElementsAre("conflict"));
        EXPECT_EQ(item("a.mov").error, "A different file is already at a.mov.");
        EXPECT_THAT(events, ElementsAre("decide a.mov", "finished 0 0 0 1"));
        engine->resolveConflict(UUID::random(), true);
        engine->resolveAllConflicts(UUID::random(), true);
        EXPECT_THAT(states(), ElementsAre("conflict"));
        engine->resolveAllConflicts(std::nullopt, one.replace);
        loop.advance(5s);
        EXPECT_THAT(states(), ElementsAre(one.state));
        EXPECT_THAT(logged(), Contains(one.sentence));
        EXPECT_EQ(item("a.mov").error.has_value(), !one.replace);
        EXPECT_EQ(vark->files["a.mov"] == "another hash", !one.replace);
        engine->resolveConflict(item("a.mov").id, true);
        EXPECT_THAT(states(), ElementsAre(one.state));
        events.clear();
    }
}

TEST_F(ItemPipeline, ARuleDecidesWhatItCanTell) {
    struct Case {
        ConflictRule rule;
        std::int64_t decided;
        const char* state;
        const char* landedAt;
    };
    const Case cases[] = {{ConflictRule::replace, 1, "verified", "a.mov"},
                          {ConflictRule::skip, 1, "skipped", ""},
                          // The vark's is from 1970.
                          {ConflictRule::newer, 1, "verified", "a.mov"},
                          // The first free name beside it is taken too.
                          {ConflictRule::keepBoth, 1, "verified", "a (3).mov"}};
    for (const Case& one : cases) {
        SCOPED_TRACE(nameOf(one.rule));
        engine->clearAll();
        vark->files = {{"a.mov", "another hash"}, {"a (2).mov", "a third one"}};
        send();
        loop.advance(5s);
        ASSERT_TRUE(item("a.mov").standing.has_value());
        EXPECT_EQ(item("a.mov").standing->mtime, 0.0);
        const std::filesystem::path local = item("a.mov").localPath;
        EXPECT_EQ(engine->decideAll(std::nullopt, one.rule), one.decided);
        loop.advance(5s);
        if (one.rule == ConflictRule::keepBoth) {
            EXPECT_THAT(states(), ElementsAre("conflict"));
            EXPECT_TRUE(engine->decide(engine->job()->items[0].id, one.rule));
            loop.advance(5s);
        }
        EXPECT_THAT(states(), ElementsAre(one.state));
        if (*one.landedAt != '\0')
            EXPECT_EQ(vark->files[one.landedAt], engine->job()->items[0].sha256->text());
        // It is known by where it lies here, whatever it is called there.
        EXPECT_EQ(loop.run(engine->add({local})).items, 0);
    }
}

TEST(ConflictRule, TheLaterOneIsToldByItsTime) {
    TransferItem item;
    item.mtime = 100;
    EXPECT_EQ(newerOf(item), std::nullopt);
    for (const auto& [standing, rule] : {std::pair(50.0, ConflictRule::replace),
                                         {99.0, ConflictRule::skip},
                                         {100.0, ConflictRule::skip},
                                         {101.0, ConflictRule::skip}}) {
        item.standing = TransferItem::Standing{5, standing};
        EXPECT_EQ(newerOf(item), rule) << standing;
    }
    item.standing = TransferItem::Standing{5, std::nullopt};
    EXPECT_EQ(newerOf(item), std::nullopt);
}

TEST(ConflictRule, TheNextFreeNameCounts) {
    const std::pair<const char*, const char*> cases[] = {
        {"a.mov", "a (2).mov"},       {"a (2).mov", "a (3).mov"}, {"a (99).mov", "a (100).mov"},
        {"a (100)", "a (100) (2)"},   {"a (1)", "a (1) (2)"},     {".profile", ".profile (2)"},
        {"a.tar.gz", "a.tar (2).gz"}, {"a. b", "a. b (2)"},       {"a.01234567890", "a.01234567890 (2)"},
        {"(2)", "(2) (2)"},           {"a (x2)", "a (x2) (2)"},   {"a.", "a. (2)"},
    };
    for (const auto& [name, next] : cases)
        EXPECT_EQ(nextFreeName(name), next);
}

TEST_F(ItemPipeline, CallsAreTriedAgainAfterLongerAndLongerWaitsAndTheSixthFailureIsFinal) {
    engine->patience = {};
    for (const char* kind : {"begin", "finish", "status", "chunk"}) {
        SCOPED_TRACE(kind);
        engine->clearAll();
        vark->calls.clear();
        vark->files.clear();
        vark->uploads.clear();
        vark->lasting.clear();
        vark->lasting.emplace(kind, VarkAPIError::server(503));
        send(100);
        Instant begun = loop.clock.now();
        std::vector<double> waits;
        int seen = 1;
        while (item("a.mov").state != ItemState::failed && loop.clock.now() - begun < 200s) {
            loop.advance(100ms);
            if (vark->count(kind) > seen) {
                waits.push_back(inSeconds(loop.clock.now() - begun));
                begun = loop.clock.now();
                seen = vark->count(kind);
            }
        }
        EXPECT_EQ(vark->count(kind), 6);
        ASSERT_EQ(waits.size(), 5U);
        for (std::size_t i = 1; i < 5; ++i)
            EXPECT_NEAR(waits[i], std::ldexp(2.0, static_cast<int>(i)), 0.3);
        EXPECT_EQ(item("a.mov").error, "The vark answered 503.");
        EXPECT_EQ(item("a.mov").attempts, 1);
    }
    EXPECT_THAT(logged(),
                Contains("begin a.mov did not get through (The vark answered 503.); trying again in 2 s"));
    EXPECT_THAT(logged(),
                Contains("Chunk 0 of a.mov did not get through (The vark answered 503.); trying again "
                         "in 32 s"));
    EXPECT_THAT(logged(), Contains("Failed: a.mov: The vark answered 503."));
}

TEST_F(ItemPipeline, WhatIsNoMatterOfTryingAgainFailsAtOnce) {
    struct Case {
        const char* kind;
        VarkAPIError error;
    };
    for (const Case& one :
         {Case{"begin", VarkAPIError::server(404)}, Case{"begin", VarkAPIError::nameTaken()},
          Case{"begin", VarkAPIError::badResponse("begin")},
          Case{"chunk", VarkAPIError::server(403, "Read only")}, Case{"finish", VarkAPIError::server(400)}}) {
        SCOPED_TRACE(one.error.what());
        engine->clearAll();
        events.clear();
        vark->calls.clear();
        vark->failures[one.kind].push_back(one.error);
        send(100);
        loop.advance(1s);
        EXPECT_THAT(states(), ElementsAre("failed"));
        EXPECT_EQ(vark->count(one.kind), 1);
        EXPECT_THAT(events,
                    ElementsAre(std::string("failed a.mov: ") + one.error.what(), "finished 0 1 0 0"));
    }
}

TEST_F(ItemPipeline, ALostUploadBeginsAgainTwiceAndFailsTheThirdTime) {
    for (const char* kind : {"chunk", "finish"}) {
        for (std::size_t losses : {2U, 3U}) {
            SCOPED_TRACE(fmt::format("{} lost {} times", kind, losses));
            engine->clearAll();
            vark->calls.clear();
            vark->files.clear();
            vark->uploads.clear();
            vark->failures[kind].assign(losses, VarkAPIError::uploadGone());
            send(100);
            loop.advance(30s);
            EXPECT_THAT(states(), ElementsAre(losses == 2 ? "verified" : "failed"));
            EXPECT_EQ(vark->count("begin"), 3);
            if (losses == 2) continue;
            EXPECT_EQ(item("a.mov").error, "The vark kept losing this upload.");
            EXPECT_TRUE(item("a.mov").sha256);
            EXPECT_FALSE(item("a.mov").uploadID);
            EXPECT_THAT(item("a.mov").doneChunks, IsEmpty());
            engine->retryFailed();
            loop.advance(30s);
            EXPECT_THAT(states(), ElementsAre("verified"));
            EXPECT_EQ(item("a.mov").attempts, 0);
        }
    }
    EXPECT_THAT(
        logged(),
        Contains("Beginning upload u1 for a.mov again: The vark forgot this upload; starting it again."));
    EXPECT_THAT(logged(), Contains(HasSubstr("for a.mov again at finish: The vark forgot this upload")));
    EXPECT_THAT(logged(), Contains("Retrying 1 file"));
}

TEST_F(ItemPipeline, AWrongRouteIsTriedInPlaceBeforeTheUploadBeginsAgain) {
    vark->failures["chunk"].assign(6, VarkAPIError::wrongChunkRoute());
    send(100);
    loop.advance(100s);
    EXPECT_THAT(states(), ElementsAre("verified"));
    EXPECT_EQ(vark->count("chunk u1"), 7);
    EXPECT_EQ(vark->count("begin"), 2);
}

TEST_F(ItemPipeline, TheVarksCheckDecidesAndItsWordsAreKept) {
    struct Case {
        std::optional<std::string> error;
        const char* sentence;
    };
    for (const Case& one : {Case{"Wrong hash.", "Wrong hash."},
                            Case{std::nullopt, "The vark could not check the file after it landed."}}) {
        engine->clearAll();
        vark->uploads.clear();
        vark->verdict = UploadStatus{"failed", std::nullopt, std::nullopt, one.error};
        send(100);
        loop.advance(5s);
        EXPECT_EQ(item("a.mov").error, one.sentence);
        // Neither the bytes that the vark has nor their hash can be relied on.
        EXPECT_FALSE(item("a.mov").sha256);
        EXPECT_EQ(item("a.mov").bytesDone(), 0);
        vark->uploads.clear();
        vark->verdict.reset();
        engine->retryFailed();
        loop.advance(5s);
        EXPECT_THAT(states(), ElementsAre("verified"));
        vark->files.clear();
    }
}

TEST_F(ItemPipeline, AVarkThatNothingGetsThroughToIsWaitedForAndSaidToBeOutOfReach) {
    for (const char* kind : {"begin", "chunk"}) {
        SCOPED_TRACE(kind);
        vark->lasting.emplace(kind, VarkAPIError::server(503, "Closed for repairs."));
        send(300, std::string(kind) + ".mov");
        send(300, std::string(kind) + "2.mov");
        const Date begun = date();
        loop.advance(900s);
        ASSERT_TRUE(engine->outage());
        EXPECT_LE(engine->outage()->since - begun, 1);
        EXPECT_EQ(engine->outage()->why, "Closed for repairs. (The vark answered 503.)");
        EXPECT_GE(engine->outage()->nextTry, date());
        EXPECT_LE(engine->outage()->nextTry - date(), 60);
        EXPECT_EQ(engine->overall().filesFailed, 0);
        vark->lasting.clear();
        loop.advance(65s);
        EXPECT_FALSE(engine->outage());
        EXPECT_EQ(engine->overall().remaining(), 0);
    }
    // A file that the vark does not take, while others get through, is not waited for.
    vark->lasting.emplace("chunk", VarkAPIError::server(503));
    send(300, "refused.mov");
    for (int other = 0; other < 8; ++other) {
        loop.advance(10s);
        send(0, fmt::format("empty{}.mov", other));
    }
    EXPECT_EQ(item("refused.mov").state, ItemState::failed);
    // Without anything under way nobody knows.
    vark->lasting.emplace("begin", VarkAPIError::transport("Could not reach the vark."));
    send(300, "last.mov");
    loop.advance(5s);
    EXPECT_EQ(engine->outage()->why, "Could not reach the vark.");
    engine->pause();
    loop.settle();
    EXPECT_FALSE(engine->outage());
}

TEST_F(ItemPipeline, PollsSlowlyWhenTheCheckTakesLong) {
    vark->checkingPolls = 20;
    vark->chunkTime = 0s;
    send(100);
    loop.advance(9500ms);
    EXPECT_EQ(vark->count("status"), 10);
    loop.advance(20s);
    EXPECT_EQ(vark->count("status"), 20);
    EXPECT_THAT(states(), ElementsAre("checking"));
    loop.advance(5s);
    EXPECT_THAT(states(), ElementsAre("verified"));
}

TEST_F(ItemPipeline, WhatIsNoFileAnyMoreFailsAtOnceWithTheReason) {
    const std::filesystem::path file = folder.path() / "files" / "a.mov";
    const std::string opening = "Could not open " + file.string() + ": ";
    struct Case {
        std::function<void()> put;
        std::string sentence;
    };
    for (const Case& one :
         {Case{[] {}, "The file is no longer where it was."},
          Case{[&] { mkfifo(file.c_str(), 0600); }, opening + "it is a pipe, a socket or a device."},
          Case{[&] { std::filesystem::create_directory(file); }, opening + "it is a folder."},
          Case{[&] { std::filesystem::create_symlink(file, file); },
               "The file is no longer where it was."}}) {
        for (bool isUnderWay : {false, true}) {
            SCOPED_TRACE(one.sentence + (isUnderWay ? " while it is sent" : " before it is read"));
            engine->clearAll();
            loop.settle();
            std::filesystem::remove_all(file);
            vark->calls.clear();
            write("a.mov", 1000);
            engine->start(false);
            if (!isUnderWay) engine->setHold("sleep", "Asleep");
            add({file});
            if (isUnderWay) loop.advance(150ms);
            std::filesystem::remove(file);
            one.put();
            engine->clearHold("sleep");
            // As the reader of a chunk tells it.
            vark->failures["chunk"].push_back(VarkAPIError::transport("Could not open a.mov."));
            loop.advance(1s);
            vark->failures.clear();
            EXPECT_EQ(item("a.mov").error, one.sentence);
            EXPECT_EQ(vark->count("begin"), isUnderWay ? 1 : 0);
        }
    }
}

TEST_F(ItemPipeline, AFileIsWhatItWasWhenItWasHashed) {
    const std::filesystem::path file = write("a.mov", 1000);
    const std::filesystem::path link = folder.path() / "files" / "link.mov";
    std::filesystem::create_symlink(file, link);
    engine->start(false);
    engine->setHold("sleep", "Asleep");
    Walker::Options options;
    options.followLinks = true;
    loop.start(engine->add({file, link}, options));
    loop.settle();
    // Before it was hashed.
    write("a.mov", 700, 'b');
    engine->clearHold("sleep");
    loop.advance(150ms);
    for (const char* name : {"a.mov", "link.mov"}) {
        EXPECT_EQ(item(name).size, 700);
        EXPECT_EQ(item(name).mtime, stampOf(file).mtime);
    }
    // Between two runs.
    engine->setHold("sleep", "Asleep");
    loop.settle();
    write("a.mov", 900, 'c');
    engine->clearHold("sleep");
    loop.advance(150ms);
    // While its chunks do not get through.
    write("a.mov", 800, 'd');
    vark->lasting.emplace("chunk", VarkAPIError::transport("a.mov is shorter than it was."));
    loop.advance(500ms);
    vark->lasting.clear();
    loop.advance(10s);
    EXPECT_THAT(states(), ElementsAre("verified", "verified"));
    EXPECT_EQ(vark->files["a.mov"], FileHasher::sha256Of(file));
    EXPECT_EQ(vark->files["link.mov"], FileHasher::sha256Of(file));
    EXPECT_EQ(item("a.mov").size, 800);
    EXPECT_EQ(engine->overall().bytesTotal, 1600);
    EXPECT_EQ(engine->overall().filesChanged, 0);
}

TEST_F(ItemPipeline, AFileThatChangesWhileItIsSentIsSaidToHave) {
    const std::filesystem::path file = write("a.mov", 1000);
    engine->start(false);
    add({file, write("b.mov", 1000)});
    loop.advance(150ms);
    write("a.mov", 1500);
    loop.advance(10s);
    EXPECT_THAT(states(), ElementsAre("verified", "verified"));
    EXPECT_TRUE(saved()->items[0].changedWhileSent);
    EXPECT_FALSE(saved()->items[1].changedWhileSent);
    EXPECT_EQ(engine->overall().filesChanged, 1);
    EXPECT_EQ(engine->entryProgress().at(engine->job()->entries[0].id).changed, 1);
    EXPECT_THAT(logged(), Contains(HasSubstr("Changed while it was sent, so what landed is not what lies "
                                             "here now: a.mov")));
    // Given again, it goes again, and a person decides whether it takes the place of the other.
    EXPECT_EQ(add({file}).again, 1);
    EXPECT_EQ(engine->overall().filesChanged, 0);
    loop.advance(10s);
    engine->resolveAllConflicts(std::nullopt, true);
    loop.advance(10s);
    EXPECT_THAT(states(), ElementsAre("verified", "verified"));
    EXPECT_EQ(vark->files["a.mov"], FileHasher::sha256Of(file));
}

TEST_F(ItemPipeline, ProgressCountsWhatIsUnderWayAndFallsBackWhenAChunkFails) {
    vark->chunkTime = 1s;
    send(100);
    EXPECT_EQ(engine->inFlightBytes(item("a.mov").id), 50);
    engine->recompute();
    EXPECT_EQ(engine->overall().bytesDone, 50);
    vark->failures["chunk"].push_back(VarkAPIError::transport("The connection dropped."));
    loop.advance(1s);
    EXPECT_EQ(engine->inFlightBytes(item("a.mov").id), 0);
    loop.advance(10s);
    EXPECT_EQ(engine->overall().bytesDone, 100);
    EXPECT_EQ(engine->inFlightBytes(item("a.mov").id), 0);
}

TEST_F(ItemPipeline, ASlotStaysTakenDuringABackOff) {
    makeEngine(1);
    vark->chunkTime = 10ms;
    vark->failures["chunk"].push_back(VarkAPIError::server(500));
    std::vector<std::filesystem::path> files = {write("a", 100), write("b", 100)};
    engine->start(false);
    add(files);
    loop.advance(1900ms);
    EXPECT_EQ(vark->count("chunk"), 1);
    loop.advance(5s);
    EXPECT_THAT(states(), ElementsAre("verified", "verified"));
}

TEST_F(ItemPipeline, ThePaceIsHandedDownOnlyWhenThereIsOne) {
    send(100);
    loop.advance(5s);
    engine->limiter.setBytesPerSecond(1000);
    send(100, "b.mov");
    loop.advance(5s);
    EXPECT_THAT(vark->limiters, ElementsAre(nullptr, &engine->limiter));
}

TEST_F(ItemPipeline, ABadChunkSizeFailsTheItemAndEveryChunkHeldSendsNothing) {
    vark->chunkSize = 0;
    send(100);
    loop.advance(1s);
    EXPECT_EQ(item("a.mov").error, "chunk size must be positive");
    engine->clearAll();
    loop.settle();
    vark->chunkSize = 1;
    send(1'000'001, "tiny pieces.mov");
    loop.advance(1s);
    EXPECT_EQ(
        item("tiny pieces.mov").error,
        "The vark wants this file in 1,000,001 pieces of 1 byte, which is too many. Tell whoever looks after "
        "the vark.");
    engine->clearAll();
    loop.settle();
    vark->chunkSize = 50;
    std::filesystem::path file = write("b.mov", 100);
    vark->uploads["old"] = FakeVark::Upload{"b.mov", 100, FileHasher::sha256Of(file), {0, 1, 7}, false};
    vark->calls.clear();
    add({file});
    loop.advance(5s);
    EXPECT_THAT(vark->calls, ElementsAre("begin b.mov", "finish old", "status old"));
    EXPECT_THAT(item("b.mov").doneChunks, ElementsAre(0, 1));
}

TEST_F(ItemPipeline, AnItemRemovedWhileItUploadsDoesNoHarm) {
    send(10'000);
    loop.advance(500ms);
    UUID entry = engine->job()->entries[0].id;
    engine->remove(entry);
    loop.advance(5s);
    EXPECT_THAT(engine->job()->items, IsEmpty());
    EXPECT_EQ(vark->count("cancel u1"), 1);
    EXPECT_EQ(vark->chunksInFlight, 0);
    EXPECT_EQ(engine->overall(), Overall());
}

}  // namespace
}  // namespace vark::test
