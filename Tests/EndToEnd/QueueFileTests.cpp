#include <fmt/format.h>

#include "Tests/EndToEnd/EndToEndTest.h"
#include "Tests/Support/OwnNamespaces.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

class SavedQueue : public EndToEndTest {};

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
    EXPECT_EQ(vark.savedStates()["Second.mov"], "verified");
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
        EXPECT_EQ(vark.savedStates()[take.relativePath], "queued");

        expectExit(vark.run({"send"}), 0);
        expectHeld(take);
        EXPECT_THAT(vark.diary(), HasSubstr("Resuming " + take.relativePath));
        EXPECT_EQ(box.count("PUT", "/u/", 200), chunks += 24);
    }
}

class TwoAtOnce : public EndToEndTest {};

TEST_F(TwoAtOnce, TheSecondSeesTheFirstAmongTheProcessesWhereNoLockCanBeHad) {
    fault(R"({"kind": "stall", "path": "/api/upload/begin"})");
    const Process sending = startSend(file("Small.mov", 1000));
    ASSERT_TRUE(vark.untilDiary("Added Small.mov", sending));
    const fs::path lock = *vark.find("running.lock");
    fs::remove(lock);
    fs::create_directories(lock);
    const Finished second = vark.run({"send", "--rate", "1MB", "/etc/hostname"});
    expectExit(second, 2);
    EXPECT_THAT(second.errors, HasSubstr("Vark is running"));
}

}  // namespace
}  // namespace vark::test
