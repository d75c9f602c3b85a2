#include "Tests/EndToEnd/EndToEndTest.h"

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

TEST_F(TwoAtOnce, TheSecondHandsItsFilesToTheFirst) {
    SampleFile large = file("Large.mov", 16 * chunkSize);
    SampleFile small = file("Small.mov", 1000);
    Process sending = startSend(large, {"--rate", "2MB"});
    ASSERT_TRUE(untilAnswered("PUT", "/u/", 200));

    Finished second = send(small);

    expectExit(second, 0);
    EXPECT_THAT(second.output, HasSubstr("Added 1 file"));
    EXPECT_EQ(sending.wait(), exitCode(0)) << sending.errors();
    expectHeld(large);
    expectHeld(small);
    EXPECT_EQ(vark.savedStates(), (std::map<std::string, int>{{"verified", 2}}));
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
