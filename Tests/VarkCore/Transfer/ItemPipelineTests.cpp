#include <sys/stat.h>

#include "EngineFixture.h"

namespace vark::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ItemPipeline : public EngineTest {
  protected:
    /// The failures of this kind of call from now on, and no others.
    void refuse(const std::string& kind, const VarkAPIError& error) { vark->lasting = {{kind, error}}; }
};

TEST_F(ItemPipeline, AConflictWaitsForItsRule) {
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
        events.clear();
        send();
        loop.advance(5s);
        EXPECT_THAT(events, ElementsAre("decide a.mov", "finished 0 0 0 1"));
        EXPECT_EQ(vark->files["a.mov"], "another hash");
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
    for (const double standing : {50.0, 99.0, 101.0}) {
        item.standing = TransferItem::Standing{5, standing};
        EXPECT_EQ(newerOf(item), standing < 99 ? ConflictRule::replace : ConflictRule::skip) << standing;
    }
    item.standing = TransferItem::Standing{5, std::nullopt};
    EXPECT_EQ(newerOf(item), std::nullopt);
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

TEST_F(ItemPipeline, ALostUploadBeginsAgainTwiceAndFailsTheThirdTime) {
    for (const char* kind : {"chunk", "finish"}) {
        for (const std::size_t losses : {2U, 3U}) {
            SCOPED_TRACE(fmt::format("{} lost {} times", kind, losses));
            startOver();
            vark->failures[kind].assign(losses, VarkAPIError::uploadGone());
            send();
            loop.advance(30s);
            EXPECT_EQ(vark->count("begin"), 3);
            EXPECT_THAT(states(), ElementsAre(losses == 2 ? "verified" : "failed"));
            if (losses == 2) continue;
            EXPECT_EQ(item("a.mov").error, "The vark kept losing this upload.");
            EXPECT_FALSE(item("a.mov").uploadID);
            engine->retryFailed();
            EXPECT_THAT(statesAfter(30s), ElementsAre("verified"));
            EXPECT_EQ(item("a.mov").attempts, 0);
        }
    }
}

TEST_F(ItemPipeline, TheVarksCheckDecidesAndItsWordsAreKept) {
    for (const auto& words : {std::optional<std::string>("Wrong hash."), std::optional<std::string>()}) {
        startOver();
        vark->checkingPolls = 12;
        vark->verdict = UploadStatus{"failed", std::nullopt, std::nullopt, words};
        send();
        loop.advance(20s);
        EXPECT_EQ(item("a.mov").error, words.value_or("The vark could not check the file after it landed."));
        // Neither the bytes that the vark has nor their hash can be relied on.
        EXPECT_FALSE(item("a.mov").sha256);
        EXPECT_EQ(item("a.mov").bytesDone(), 0);
        vark->verdict.reset();
        engine->retryFailed();
        EXPECT_THAT(statesAfter(5s), ElementsAre("verified"));
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
        EXPECT_NEAR(engine->outage()->since - begun, 0, 1);
        EXPECT_EQ(engine->outage()->why, "Closed for repairs. (The vark answered 503.)");
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
}

TEST_F(ItemPipeline, WhatIsNoFileAnyMoreFailsAtOnceWithTheReason) {
    const std::filesystem::path file = folder.path() / "files" / "a.mov";
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"no longer where it was", [] {}},
        {"no longer where it was", [&] { create_symlink(file, file); }},
        {"it is a pipe, a socket or a device", [&] { mkfifo(file.c_str(), 0600); }},
        {"it is a folder", [&] { create_directory(file); }},
    };
    for (const auto& [why, put] : cases) {
        for (const bool isUnderWay : {false, true}) {
            SCOPED_TRACE(fmt::format("{}, {}", why, isUnderWay ? "while it is sent" : "before it is read"));
            startOver();
            remove_all(file);
            if (!isUnderWay) engine->setHold("sleep", "Asleep");
            send("a.mov", 1000);
            if (isUnderWay) loop.advance(150ms);
            remove(file);
            put();
            engine->clearHold("sleep");
            // As the reader of a chunk tells it.
            vark->failures["chunk"] = {VarkAPIError::transport("Could not open a.mov.")};
            loop.advance(1s);
            EXPECT_THAT(item("a.mov").error.value_or(""), HasSubstr(why));
            EXPECT_EQ(vark->count("begin"), isUnderWay ? 1 : 0);
        }
    }
}

TEST_F(ItemPipeline, AFileIsWhatItWasWhenItWasHashed) {
    const std::filesystem::path file = write("a.mov", 1000);
    const std::filesystem::path link = folder.path() / "files" / "link.mov";
    create_symlink(file, link);
    engine->start(false);
    engine->setHold("sleep", "Asleep");
    add({file, link}, {.followLinks = true});
    // Before it was hashed, and between two runs.
    for (const std::int64_t size : {700, 900}) {
        write("a.mov", static_cast<std::size_t>(size), 'b');
        engine->clearHold("sleep");
        loop.advance(150ms);
        for (const char* name : {"a.mov", "link.mov"}) {
            EXPECT_EQ(item(name).size, size);
            EXPECT_EQ(item(name).mtime, stampOf(file).mtime);
        }
        engine->setHold("sleep", "Asleep");
        loop.settle();
    }
    // While its chunks do not get through.
    engine->clearHold("sleep");
    loop.advance(150ms);
    write("a.mov", 800, 'd');
    refuse("chunk", VarkAPIError::transport("a.mov is shorter than it was."));
    loop.advance(500ms);
    vark->lasting.clear();
    EXPECT_THAT(statesAfter(10s), ElementsAre("verified", "verified"));
    EXPECT_EQ(vark->files["a.mov"], FileHasher::sha256Of(file));
    EXPECT_EQ(vark->files["link.mov"], FileHasher::sha256Of(file));
    EXPECT_EQ(engine->overall().bytesTotal, 1600);
    EXPECT_EQ(engine->overall().filesChanged, 0);
}

TEST_F(ItemPipeline, AFileThatChangesWhileItIsSentIsSaidToHave) {
    send("a.mov", 1000);
    send("b.mov", 1000);
    loop.advance(150ms);
    const std::filesystem::path file = write("a.mov", 1500);
    EXPECT_THAT(statesAfter(10s), ElementsAre("verified", "verified"));
    EXPECT_TRUE(saved()->items[0].changedWhileSent);
    EXPECT_FALSE(saved()->items[1].changedWhileSent);
    EXPECT_EQ(engine->overall().filesChanged, 1);
    // Given again, it goes again, and a person decides whether it takes the place of the other.
    EXPECT_EQ(add({file}).again, 1);
    EXPECT_EQ(engine->overall().filesChanged, 0);
    loop.advance(10s);
    engine->resolveAllConflicts(std::nullopt, true);
    loop.advance(10s);
    EXPECT_EQ(vark->files["a.mov"], FileHasher::sha256Of(file));
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

}  // namespace
}  // namespace vark::test
