#include <fmt/format.h>

#include "Tests/EndToEnd/EndToEndTest.h"
#include "Tests/Support/OwnMounts.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

class SavedQueue : public EndToEndTest {};

TEST_F(SavedQueue, ThatCannotBeWrittenForLackOfRoomStopsNoUpload) {
    SampleFile first = file("First.mov", 1000);
    expectExit(send(first), 0);
    std::string before = readWholeFile(vark.queueFile());
    std::vector<SampleFile> files;
    for (int i = 0; i < 300; ++i)
        files.push_back(file("Shoot/Take " + std::to_string(i), 100 + i));

    constexpr rlim_t roomForAFile = 64 << 10;
    Process sending = vark.start({"send", (vark.home() / "Shoot").string()}, roomForAFile);

    EXPECT_EQ(sending.wait(), exitCode(0)) << sending.errors();
    for (const SampleFile& file : files)
        expectHeld(file);
    EXPECT_EQ(readWholeFile(vark.queueFile()), before);
    // With room again the same request finds everything where it belongs.
    expectExit(vark.run({"send", (vark.home() / "Shoot").string()}), 0);
    EXPECT_EQ(box.files().size(), files.size() + 1);
    EXPECT_EQ(vark.savedStates(), (std::map<std::string, int>{{"verified", 300}}));
}

TEST_F(SavedQueue, OnAFullDiskIsSaidToBeSavedOnlyWhenItIs) {
    constexpr int count = 1000;
    for (int i = 0; i < count; ++i)
        file("Shoot/Take " + std::to_string(i), 100 + i);
    const std::string folder = (vark.home() / "Shoot").string();
    fs::path storage = vark.queueFile().parent_path();
    const fs::path kept = vark.home() / "kept";
    fs::rename(storage, kept);
    fs::create_directory(storage);
    OwnMounts mounts(fmt::format("mount -t tmpfs -o size=600k tmpfs '{0}'\ncp '{1}'/* '{0}'",
                                 storage.string(), kept.string()));
    if (!mounts.isThere()) GTEST_SKIP() << "THIS KERNEL GIVES NO MOUNTS OF ONE'S OWN.";
    vark.moveTo({.prefix = mounts.prefix()});

    Process sending = vark.start({"send", folder});
    ASSERT_TRUE(box.untilRequests(
        [](const std::vector<LoggedRequest>& requests) {
            return std::ranges::count_if(requests, [](const LoggedRequest& request) {
                       return request.target.ends_with("/finish");
                   }) > count / 2;
        },
        sending.descriptor()));
    sending.signal(SIGINT);
    const Exit stopped = sending.wait();
    const bool isSaidToBeSaved = sending.errors().find("The queue is saved") != std::string::npos;
    EXPECT_EQ(stopped, exitCode(isSaidToBeSaved ? 130 : 1)) << sending.errors();
    if (!isSaidToBeSaved) EXPECT_THAT(sending.errors(), HasSubstr(vark.queueFile().string()));

    mounts.run(fmt::format("mount -o remount,size=10m '{}'", storage.string()));
    expectExit(vark.run({"send", folder}), 0);
    EXPECT_EQ(box.files().size(), count);
    EXPECT_THAT(vark.run({"queue"}).output, HasSubstr("1,000 of 1,000 files landed"));
}

struct Damage {
    const char* name;
    /// Makes of a queue that can be read one that cannot.
    std::string (*done)(std::string);
};

class UnreadableQueue : public EndToEndTest, public testing::WithParamInterface<Damage> {};

TEST_P(UnreadableQueue, StandsAsItIsUntilANewOneIsSaved) {
    SampleFile first = file("First.mov", 1000);
    expectExit(send(first), 0);
    fs::path queue = vark.queueFile();
    std::string damaged = GetParam().done(readWholeFile(queue));
    writeAtomically(queue, damaged, 0600);

    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"queue"}, {"pause"}, {"retry"}, {"clear"}, {"send"}}) {
        Finished run = vark.run(command);
        EXPECT_EQ(run.exit, exitCode(1)) << command.front() << run.output << run.errors;
        EXPECT_THAT(run.errors, HasSubstr("cannot be read"));
        EXPECT_EQ(readWholeFile(queue), damaged) << command.front();
    }

    SampleFile second = file("Second.mov", 1000);
    expectExit(send(second), 0);
    expectHeld(second);
    EXPECT_EQ(vark.savedState("Second.mov"), "verified");
}

INSTANTIATE_TEST_SUITE_P(
    EndToEnd, UnreadableQueue,
    testing::Values(Damage{"CutShort", [](std::string text) { return text.substr(0, text.size() / 2); }},
                    Damage{"NoText", [](std::string) { return std::string("\0\xff\x01", 3); }},
                    Damage{
                        "UnknownState",
                        [](std::string text) { return text.replace(text.find("verified"), 8, "besieged"); }}),
    [](const auto& param) { return std::string(param.param.name); });

class Interrupted : public EndToEndTest, public testing::WithParamInterface<int> {};

TEST_P(Interrupted, SaysHowToCarryOnAndTheNextRunSendsOnlyWhatIsMissing) {
    SampleFile take = file("Take.mov", 24 * chunkSize);
    Process sending = startSend(take, {"--rate", "3MB"});
    ASSERT_TRUE(untilAnswered("PUT", "/u/", 200));
    sending.signal(GetParam());
    EXPECT_EQ(sending.wait(), exitCode(130));
    EXPECT_THAT(sending.errors(), HasSubstr("vark send"));
    EXPECT_EQ(vark.savedState("Take.mov"), "queued");

    expectExit(vark.run({"send"}), 0);
    expectHeld(take);
    EXPECT_THAT(vark.diary(), HasSubstr("Resuming Take.mov"));
    std::vector<LoggedRequest> chunks;
    std::ranges::copy_if(box.requests(), std::back_inserter(chunks), [](const LoggedRequest& request) {
        return request.isChunk() && request.status == 200;
    });
    EXPECT_EQ(chunks.size(), 24U);
}

INSTANTIATE_TEST_SUITE_P(EndToEnd, Interrupted, testing::Values(SIGINT, SIGTERM), [](const auto& param) {
    return param.param == SIGINT ? "ByTheKeyboard" : "ByTheSystem";
});

class TwoAtOnce : public EndToEndTest {};

TEST_F(TwoAtOnce, TheSecondHandsItsFilesToTheFirstAndFollowsThemToTheirEnd) {
    SampleFile large = file("Large.mov", 16 * chunkSize);
    SampleFile small = file("Small.mov", 1000);
    Process sending = startSend(large, {"--rate", "1MB"});
    ASSERT_TRUE(untilAnswered("PUT", "/u/", 200));

    Finished second = send(small);
    expectExit(second, 0);
    expectHeld(small);
    EXPECT_THAT(second.output, HasSubstr("1 file landed and checked"));
    EXPECT_FALSE(sending.hasEnded());

    expectExit(send(small, {"--to", "Elsewhere"}), 2);
    expectExit(send(small, {"--rate", "1MB"}), 2);
    EXPECT_EQ(sending.wait(), exitCode(0)) << sending.errors();
    expectHeld(large);
    EXPECT_EQ(vark.savedStates(), (std::map<std::string, int>{{"verified", 2}}));
}

TEST_F(TwoAtOnce, WhatTheFirstHasTakenOnSurvivesItsEnd) {
    SampleFile large = file("Large.mov", 16 * chunkSize);
    SampleFile left = file("Left.mov", 1000);
    SampleFile followed = file("Followed.mov", 4 * chunkSize);
    Process sending = startSend(large, {"--rate", "500KB"});
    ASSERT_TRUE(untilAnswered("PUT", "/u/", 200));
    expectExit(send(left, {"--hand-over"}), 5);
    Process following = startSend(followed);
    ASSERT_TRUE(untilDiary("Added Followed.mov", following));
    sending.kill();

    EXPECT_EQ(following.wait(), exitCode(0)) << following.output() << following.errors();
    for (const SampleFile& file : {large, left, followed})
        expectHeld(file);
}

TEST_F(TwoAtOnce, TheSecondSeesTheFirstAmongTheProcessesWhereNoLockCanBeHad) {
    fault(R"({"kind": "stall", "path": "/api/upload/begin"})");
    Process sending = startSend(file("First.mov", 1000));
    ASSERT_TRUE(untilDiary("Added First.mov", sending));
    const fs::path lock = vark.queueFile().parent_path() / "running.lock";
    fs::remove(lock);
    fs::create_directories(lock);

    const Finished second = vark.run({"ingest", "ALPHA"});

    expectExit(second, 1);
    EXPECT_THAT(second.errors, HasSubstr("Another vark is sending"));
    sending.kill();
}

}  // namespace
}  // namespace vark::test
