#include <fmt/format.h>

#include "Tests/EndToEnd/EndToEndTest.h"
#include "Tests/Support/OwnNamespaces.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

class SavedQueue : public EndToEndTest {};

TEST_F(SavedQueue, ThatCannotBeWrittenForLackOfRoomStopsNoUpload) {
    expectExit(send(file("First.mov", 1000)), 0);
    const std::string before = readWholeFile(vark.queueFile());
    const std::vector<SampleFile> files = shoot(300);
    constexpr rlim_t roomForAFile = 64 << 10;
    expectExit(vark.start({"send", pathOf("Shoot")}, roomForAFile).finish(), 0);
    expectHeld(files);
    EXPECT_EQ(readWholeFile(vark.queueFile()), before);
    // With room again the same request finds everything where it belongs.
    expectExit(vark.run({"send", pathOf("Shoot")}), 0);
    EXPECT_EQ(box.files().size(), files.size() + 1);
    EXPECT_EQ(vark.savedState("Shoot/Take 299"), "verified");
}

TEST_F(SavedQueue, OnAFullDiskIsSaidToBeSavedOnlyWhenItIs) {
    constexpr int count = 1000;
    shoot(count);
    const std::string storage = vark.queueFile().parent_path();
    fs::rename(storage, pathOf("kept"));
    fs::create_directory(storage);
    const OwnNamespaces mounts(
        fmt::format("mount -t tmpfs -o size=600k tmpfs '{0}'\ncp '{1}'/* '{0}'", storage, pathOf("kept")));
    if (!mounts.areThere()) GTEST_SKIP() << OwnNamespaces::whySkipped;
    vark.moveTo({.prefix = mounts.prefix()});

    Process sending = vark.start({"send", pathOf("Shoot")});
    ASSERT_TRUE(untilAnswered("POST", "/finish", 200, count / 2));
    sending.signal(SIGINT);
    const Finished stopped = sending.finish();
    const bool isSaidToBeSaved = stopped.errors.contains("The queue is saved");
    expectExit(stopped, isSaidToBeSaved ? 130 : 1);
    if (!isSaidToBeSaved) EXPECT_THAT(stopped.errors, HasSubstr(vark.queueFile().string()));

    mounts.run(fmt::format("mount -o remount,size=10m '{}'", storage));
    expectExit(vark.run({"send", pathOf("Shoot")}), 0);
    EXPECT_EQ(box.files().size(), count);
}

TEST_F(SavedQueue, ThatCannotBeReadStandsAsItIsUntilANewOneIsSaved) {
    expectExit(send(file("First.mov", 1000)), 0);
    std::string damaged = readWholeFile(vark.queueFile());
    damaged.resize(damaged.size() / 2);
    writeAtomically(vark.queueFile(), damaged, 0600);
    for (const char* command : {"queue", "pause", "retry", "clear", "send"}) {
        const Finished run = vark.run({command});
        expectExit(run, 1);
        EXPECT_THAT(run.errors, HasSubstr("cannot be read"));
        EXPECT_EQ(readWholeFile(vark.queueFile()), damaged) << command;
    }
    expectExit(send(file("Second.mov", 1000)), 0);
    EXPECT_EQ(vark.savedState("Second.mov"), "verified");
}

class Interrupted : public EndToEndTest {};

TEST_F(Interrupted, SaysHowToCarryOnAndTheNextRunSendsOnlyWhatIsMissing) {
    std::int64_t chunks = 0;
    for (const int signal : {SIGINT, SIGTERM}) {
        const SampleFile take = file("Take " + std::to_string(signal), 24 * chunkSize);
        Process sending = startSend(take, {"--rate", "3MB"});
        ASSERT_TRUE(untilAnswered("PUT", "/u/", 200, chunks + 1));
        sending.signal(signal);
        const Finished stopped = sending.finish();
        expectExit(stopped, 130);
        EXPECT_THAT(stopped.errors, HasSubstr("vark send"));
        EXPECT_EQ(vark.savedState(take.relativePath), "queued");

        expectExit(vark.run({"send"}), 0);
        expectHeld(take);
        EXPECT_THAT(vark.diary(), HasSubstr("Resuming " + take.relativePath));
        EXPECT_EQ(box.count("PUT", "/u/", 200), chunks += 24);
    }
}

class TwoAtOnce : public EndToEndTest {
  protected:
    SampleFile large = file("Large.mov", 16 * chunkSize);
    SampleFile small = file("Small.mov", 1000);
};

TEST_F(TwoAtOnce, TheSecondHandsItsFilesToTheFirstAndFollowsThemToTheirEnd) {
    Process sending = sendSlowly(large, "1MB");
    const Finished second = send(small);
    expectExit(second, 0);
    expectHeld(small);
    EXPECT_THAT(second.output, HasSubstr("1 file landed and checked"));
    const Finished first = sending.finish();
    expectExit(first, 0);
    EXPECT_THAT(first.output, HasSubstr("Landed: Small.mov"));
    expectHeld(large);
}

TEST_F(TwoAtOnce, WhatTheFirstHasTakenOnSurvivesItsEnd) {
    const SampleFile followed = file("Followed.mov", 4 * chunkSize);
    Process sending = sendSlowly(large, "500KB");
    expectExit(send(small, {"--hand-over"}), 5);
    Process following = startSend(followed);
    ASSERT_TRUE(vark.untilDiary("Added Followed.mov", following));
    sending.kill();
    expectExit(following.finish(), 0);
    expectHeld({large, small, followed});
}

TEST_F(TwoAtOnce, TheSecondSeesTheFirstAmongTheProcessesWhereNoLockCanBeHad) {
    fault(R"({"kind": "stall", "path": "/api/upload/begin"})");
    const Process sending = startSend(small);
    ASSERT_TRUE(vark.untilDiary("Added Small.mov", sending));
    const fs::path lock = *vark.find("running.lock");
    fs::remove(lock);
    fs::create_directories(lock);
    const Finished second = vark.run({"ingest", "ALPHA"});
    expectExit(second, 1);
    EXPECT_THAT(second.errors, HasSubstr("Another vark is sending"));
}

}  // namespace
}  // namespace vark::test
