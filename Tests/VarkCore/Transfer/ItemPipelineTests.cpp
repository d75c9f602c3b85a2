#include <sys/stat.h>

#include "EngineFixture.h"

namespace vark::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ItemPipeline : public EngineTest {
  protected:
    /// The failures of this kind of call from now on, and no others.
    void refuse(const std::string& kind, const VarkAPIError& error) { vark->lasting = {{kind, error}}; }
};

TEST_F(ItemPipeline, WhatTheVarkHasIsNotSentAgain) {
    vark->files["a.mov"] = FileHasher::sha256Of(write("a.mov", 100));
    send();
    loop.advance(5s);
    EXPECT_THAT(vark->calls, ElementsAre("begin a.mov"));
    EXPECT_TRUE(item("a.mov").alreadyThere);
    // What was sent, and checked while nobody looked, has not been there before.
    vark->checkingPolls = 1000;
    send("b.mov");
    loop.advance(2s);
    ASSERT_EQ(item("b.mov").state, ItemState::checking);
    engine->setHold("sleep", "Asleep");
    loop.settle();
    vark->files["b.mov"] = item("b.mov").sha256->text();
    engine->clearHold("sleep");
    loop.advance(2s);
    EXPECT_EQ(item("b.mov").state, ItemState::verified);
    EXPECT_FALSE(item("b.mov").alreadyThere);
}

TEST_F(ItemPipeline, AConflictWaitsForItsDecision) {
    for (const bool replaces : {true, false}) {
        SCOPED_TRACE(replaces);
        engine->clearAll();
        events.clear();
        vark->files["a.mov"] = "another hash";
        send();
        loop.advance(5s);
        EXPECT_THAT(events, ElementsAre("decide a.mov", "finished 0 0 0 1"));
        engine->resolveConflict(UUID::random(), true);
        engine->resolveAllConflicts(UUID::random(), true);
        EXPECT_THAT(states(), ElementsAre("conflict"));
        engine->resolveAllConflicts(std::nullopt, replaces);
        loop.advance(5s);
        engine->resolveConflict(item("a.mov").id, true);
        EXPECT_THAT(states(), ElementsAre(replaces ? "verified" : "skipped"));
        EXPECT_EQ(item("a.mov").error.has_value(), !replaces);
        EXPECT_EQ(vark->files["a.mov"] == "another hash", !replaces);
    }
}

TEST_F(ItemPipeline, CallsAreTriedAgainAfterLongerAndLongerWaitsAndTheSixthFailureIsFinal) {
    engine->patience = {};
    vark->chunkTime = 0s;
    for (const char* kind : {"begin", "finish", "status", "chunk"}) {
        SCOPED_TRACE(kind);
        refuse(kind, VarkAPIError::server(503));
        vark->calls.clear();
        send(kind);
        loop.advance(0s);
        int tries = 1;
        EXPECT_EQ(vark->count(kind), tries);
        for (const Duration wait : {2s, 4s, 8s, 16s, 32s}) {
            loop.advance(wait - 1ms);
            EXPECT_EQ(vark->count(kind), tries);
            loop.advance(1ms);
            EXPECT_EQ(vark->count(kind), ++tries);
        }
        loop.advance(200s);
        EXPECT_EQ(vark->count(kind), 6);
        EXPECT_EQ(item(kind).error, "The vark answered 503.");
        EXPECT_EQ(item(kind).attempts, 1);
    }
}

TEST_F(ItemPipeline, WhatIsNoMatterOfTryingAgainFailsAtOnce) {
    struct Case {
        const char* kind;
        VarkAPIError error;
    };
    for (const Case& one :
         {Case{"begin", VarkAPIError::server(404)}, Case{"begin", VarkAPIError::nameTaken()},
          Case{"chunk", VarkAPIError::server(403, "Read only")}, Case{"finish", VarkAPIError::server(400)}}) {
        SCOPED_TRACE(one.error.what());
        engine->clearAll();
        events.clear();
        vark->calls.clear();
        vark->failures[one.kind].push_back(one.error);
        send();
        loop.advance(1s);
        EXPECT_EQ(vark->count(one.kind), 1);
        EXPECT_THAT(events,
                    ElementsAre(fmt::format("failed a.mov: {}", one.error.what()), "finished 0 1 0 0"));
    }
}

TEST_F(ItemPipeline, ALostUploadBeginsAgainTwiceAndFailsTheThirdTime) {
    for (const char* kind : {"chunk", "finish"}) {
        for (const std::size_t losses : {2U, 3U}) {
            SCOPED_TRACE(fmt::format("{} lost {} times", kind, losses));
            vark->calls.clear();
            vark->failures[kind].assign(losses, VarkAPIError::uploadGone());
            const std::string name = fmt::format("{}{}", kind, losses);
            send(name);
            loop.advance(30s);
            EXPECT_EQ(vark->count("begin"), 3);
            if (losses == 3) {
                EXPECT_EQ(item(name).error, "The vark kept losing this upload.");
                EXPECT_TRUE(item(name).sha256);
                EXPECT_FALSE(item(name).uploadID);
                EXPECT_THAT(item(name).doneChunks, IsEmpty());
                engine->retryFailed();
                loop.advance(30s);
            }
            EXPECT_EQ(item(name).state, ItemState::verified);
            EXPECT_EQ(item(name).attempts, 0);
        }
    }
}

TEST_F(ItemPipeline, AWrongRouteIsTriedInPlaceBeforeTheUploadBeginsAgain) {
    vark->failures["chunk"].assign(6, VarkAPIError::wrongChunkRoute());
    send();
    loop.advance(100s);
    EXPECT_THAT(states(), ElementsAre("verified"));
    EXPECT_EQ(vark->count("chunk u1"), 7);
    EXPECT_EQ(vark->count("begin"), 2);
}

TEST_F(ItemPipeline, TheVarksCheckDecidesAndItsWordsAreKept) {
    using Words = std::optional<std::string>;
    const std::string ownWords = "The vark could not check the file after it landed.";
    for (const Words& words : {Words("Wrong hash."), Words()}) {
        engine->clearAll();
        vark->files.clear();
        vark->verdict = UploadStatus{"failed", std::nullopt, std::nullopt, words};
        send();
        loop.advance(5s);
        EXPECT_EQ(item("a.mov").error, words.value_or(ownWords));
        // Neither the bytes that the vark has nor their hash can be relied on.
        EXPECT_FALSE(item("a.mov").sha256);
        EXPECT_EQ(item("a.mov").bytesDone(), 0);
        vark->verdict.reset();
        engine->retryFailed();
        loop.advance(5s);
        EXPECT_THAT(states(), ElementsAre("verified"));
    }
}

TEST_F(ItemPipeline, AVarkThatNothingGetsThroughToIsWaitedForAndSaidToBeOutOfReach) {
    for (const char* kind : {"begin", "chunk"}) {
        SCOPED_TRACE(kind);
        refuse(kind, VarkAPIError::server(503, "Closed for repairs."));
        const Date begun = date();
        send(fmt::format("{}.mov", kind), 300);
        send(fmt::format("{}2.mov", kind), 300);
        loop.advance(900s);
        ASSERT_TRUE(engine->outage());
        EXPECT_LE(engine->outage()->since - begun, 1);
        EXPECT_EQ(engine->outage()->why, "Closed for repairs. (The vark answered 503.)");
        EXPECT_GE(engine->outage()->nextTry, date());
        EXPECT_LE(engine->outage()->nextTry - date(), 60);
        vark->lasting.clear();
        loop.advance(65s);
        EXPECT_FALSE(engine->outage());
        EXPECT_EQ(engine->overall().remaining() + engine->overall().filesFailed, 0);
    }
    // A file that the vark does not take, while others get through, is not waited for.
    refuse("chunk", VarkAPIError::server(503));
    send("refused.mov", 300);
    for (int other = 0; other < 8; ++other) {
        loop.advance(10s);
        send(fmt::format("empty{}.mov", other), 0);
    }
    EXPECT_EQ(item("refused.mov").state, ItemState::failed);
    // Without anything under way nobody knows.
    refuse("begin", VarkAPIError::transport("Could not reach the vark."));
    send("last.mov");
    loop.advance(5s);
    EXPECT_EQ(engine->outage()->why, "Could not reach the vark.");
    engine->pause();
    loop.settle();
    EXPECT_FALSE(engine->outage());
}

TEST_F(ItemPipeline, PollsSlowlyWhenTheCheckTakesLong) {
    vark->checkingPolls = 20;
    vark->chunkTime = 0s;
    send();
    loop.advance(9500ms);
    EXPECT_EQ(vark->count("status"), 10);
    loop.advance(20s);
    EXPECT_EQ(vark->count("status"), 20);
    loop.advance(5s);
    EXPECT_THAT(states(), ElementsAre("verified"));
}

TEST_F(ItemPipeline, WhatIsNoFileAnyMoreFailsAtOnceWithTheReason) {
    const std::filesystem::path file = folder.path() / "files" / "a.mov";
    const std::string gone = "The file is no longer where it was.";
    const std::string opening = "Could not open " + file.string() + ": ";
    struct Case {
        std::string sentence;
        std::function<void()> put;
    };
    const Case cases[] = {
        {gone, [] {}},
        {gone, [&] { std::filesystem::create_symlink(file, file); }},
        {opening + "it is a pipe, a socket or a device.", [&] { mkfifo(file.c_str(), 0600); }},
        {opening + "it is a folder.", [&] { std::filesystem::create_directory(file); }},
    };
    for (const Case& one : cases) {
        for (const bool isUnderWay : {false, true}) {
            SCOPED_TRACE(one.sentence + (isUnderWay ? " while it is sent" : " before it is read"));
            engine->clearAll();
            loop.settle();
            std::filesystem::remove_all(file);
            vark->calls.clear();
            if (!isUnderWay) engine->setHold("sleep", "Asleep");
            send("a.mov", 1000);
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
    add({file, link}, {.followLinks = true});
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
    refuse("chunk", VarkAPIError::transport("a.mov is shorter than it was."));
    loop.advance(500ms);
    vark->lasting.clear();
    loop.advance(10s);
    EXPECT_THAT(states(), ElementsAre("verified", "verified"));
    EXPECT_EQ(vark->files["a.mov"], FileHasher::sha256Of(file));
    EXPECT_EQ(vark->files["link.mov"], FileHasher::sha256Of(file));
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
    send();
    EXPECT_EQ(engine->inFlightBytes(item("a.mov").id), 50);
    engine->recompute();
    EXPECT_EQ(engine->overall().bytesDone, 50);
    vark->failures["chunk"].push_back(VarkAPIError::transport("The connection dropped."));
    loop.advance(1s);
    EXPECT_EQ(engine->inFlightBytes(item("a.mov").id), 0);
    loop.advance(10s);
    EXPECT_EQ(engine->overall().bytesDone, 100);
}

TEST_F(ItemPipeline, AChunkThatWaitsForItsNextTryKeepsItsSlotAndNothingElse) {
    for (const int slots : {1, 2}) {
        SCOPED_TRACE(slots);
        makeEngine(slots);
        // One at a time until the link is known.
        engine->chunksFollowTheRate = true;
        vark->calls.clear();
        vark->failures["chunk"].push_back(VarkAPIError::server(500));
        send(fmt::format("{}.mov", slots), 200);
        loop.advance(1900ms);
        EXPECT_EQ(vark->count("chunk"), slots);
        loop.advance(5s);
        EXPECT_EQ(engine->overall().remaining(), 0);
    }
}

TEST_F(ItemPipeline, ThePaceIsHandedDownOnlyWhenThereIsOne) {
    send();
    loop.advance(5s);
    engine->limiter.setBytesPerSecond(1000);
    send("b.mov");
    loop.advance(5s);
    EXPECT_THAT(vark->limiters, ElementsAre(nullptr, &engine->limiter));
}

TEST_F(ItemPipeline, NonsenseOfTheVarksAboutChunksFailsTheItemOrIsPassedOver) {
    vark->chunkSize = 0;
    send();
    loop.advance(1s);
    EXPECT_EQ(item("a.mov").state, ItemState::failed);
    vark->chunkSize = 1;
    send("tiny pieces.mov", 1'000'001);
    loop.advance(1s);
    EXPECT_EQ(item("tiny pieces.mov").state, ItemState::failed);
    vark->chunkSize = 50;
    const std::string sha256 = FileHasher::sha256Of(write("b.mov", 100));
    vark->uploads["old"] = FakeVark::Upload{"b.mov", 100, sha256, {0, 1, 7}, false};
    vark->calls.clear();
    send("b.mov");
    loop.advance(5s);
    EXPECT_THAT(vark->calls, ElementsAre("begin b.mov", "finish old", "status old"));
    EXPECT_THAT(item("b.mov").doneChunks, ElementsAre(0, 1));
}

}  // namespace
}  // namespace vark::test
