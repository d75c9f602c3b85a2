#include "Hosts/CLI/Sending/Following.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/CLI/CLIWorld.h"
#include "VarkApp/Queue/RequestFolder.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::cli {
namespace {

using ::testing::HasSubstr;

/// Somebody whose entry another vark sends, as that one tells of it.
class FollowingTest : public ::testing::Test {
  protected:
    FollowingTest() {
        std::filesystem::create_directories(world.surroundings.locations().storageFolder());
        runner = FileLock::exclusive(world.surroundings.locations().runningLock());
        followed.taken.entries = {entryID.text()};
    }
    /// Of three files.
    QueueView view(EntryProgress progress, bool isGone = false) const {
        progress.files = 3;
        EntryView entry;
        entry.id = entryID.text();
        entry.progress = progress;
        entry.isGone = isGone;
        QueueView view;
        view.running = true;
        view.entries = {entry};
        view.overall.filesTotal = 3;
        view.overall.filesVerified = progress.verified;
        view.overall.filesFailed = progress.failed;
        view.overall.filesConflict = progress.conflicts;
        view.overall.filesChanged = progress.changed;
        return view;
    }
    void start() {
        following = scope.start(follow(world.surroundings, display, followed, lock));
        world.settle();
    }
    /// The other vark's next answer.
    QueueRequest answer(const QueueView& view) {
        std::optional<RequestFolder::Taken> taken;
        EXPECT_TRUE(world.passTime([&] { return (taken = folder.takeNext(systemDate())).has_value(); },
                                   std::chrono::seconds(5)));
        QueueAnswer answer;
        answer.queue = view;
        folder.answer(taken->id, answer);
        world.platform.watches.ring(world.surroundings.locations().requests());
        world.passTime([] { return false; }, std::chrono::milliseconds(200));
        return *taken->request;
    }
    std::optional<ExitCode> end(Duration longest = std::chrono::seconds(5)) {
        EXPECT_TRUE(world.passTime([&] { return following.done(); }, longest));
        return following.result();
    }

    test::CLIWorld world;
    const UUID entryID = UUID::random();
    Followed followed;
    QueueLock lock;
    PlainDisplay display{world.console};
    std::optional<FileLock> runner;
    RequestFolder folder{world.surroundings.locations().requests()};
    TaskScope scope{world.executor, world.clock};
    TaskHandle<std::optional<ExitCode>> following;
};

TEST_F(FollowingTest, TheExitCodeIsThatOfItsOwnFiles) {
    struct Case {
        const char* name;
        EntryProgress progress;
        bool isGone;
        Outcome handedOverWith;
        ExitCode code;
    };
    const Outcome done = Outcome::done;
    const ExitCode well = ExitCode::allLanded;
    const ExitCode failed = ExitCode::somethingFailed;
    for (const Case& one : {
             Case{"all landed", {.verified = 2, .skipped = 1}, false, done, well},
             Case{"one failed", {.verified = 1, .failed = 1, .conflicts = 1}, false, done, failed},
             Case{"a decision waits", {.verified = 2, .conflicts = 1}, false, done, ExitCode::decisionWaits},
             Case{"one changed", {.verified = 3, .changed = 1}, false, done, failed},
             Case{"not all was taken on", {.verified = 3}, false, Outcome::failed, failed},
             Case{"taken out before it landed", {.verified = 2}, true, done, failed},
             Case{"taken out afterwards", {.verified = 3}, true, done, well},
         }) {
        SCOPED_TRACE(one.name);
        followed.taken.outcome = one.handedOverWith;
        start();
        answer(view({.verified = 1}));
        EXPECT_FALSE(following.done());
        answer(view(one.progress, one.isGone));
        EXPECT_EQ(end(), one.code);
    }
}

TEST_F(FollowingTest, WhatTheOtherOneIsToDecideIsWaitedFor) {
    followed.rule = ConflictRule::replace;
    start();
    answer(view({.verified = 2, .conflicts = 1}));
    EXPECT_FALSE(following.done());
    answer(view({.verified = 3}));
    EXPECT_EQ(end(), ExitCode::allLanded);
}

TEST_F(FollowingTest, ACardThatLeftTheQueueIsNotSaidToBeSafe) {
    followed.isCard = true;
    start();
    answer(view({.verified = 3}));
    EXPECT_FALSE(following.done()) << "the card is still to be closed";
    answer(view({.verified = 3}, true));
    EXPECT_EQ(end(), ExitCode::somethingFailed);
}

TEST_F(FollowingTest, WhenTheOtherOneEndsTheQueueIsItsOwn) {
    start();
    answer(view({.verified = 1}));
    runner.reset();
    EXPECT_EQ(end(), std::nullopt);
    EXPECT_TRUE(lock);

    TransferJob job;
    job.entries = {{.id = entryID, .localPath = "/in", .name = "in"}};
    job.items = {{.id = UUID::random(), .entryID = entryID, .state = ItemState::queued}};
    EXPECT_EQ(endOf(followed, job, display), std::nullopt);
    EXPECT_EQ(endOf(followed, std::nullopt, display), ExitCode::somethingFailed);
    EXPECT_THAT(world.advice.str(), HasSubstr("whether it has landed is not known"));
}

TEST_F(FollowingTest, APauseThatNobodyIsThereToLiftIsNotWaitedForWithoutEnd) {
    start();
    QueueView paused = view({.verified = 1});
    paused.paused = true;
    for (int look = 0; look < 200 && !following.done(); ++look)
        answer(paused);
    EXPECT_EQ(end(), ExitCode::notConnected);
    EXPECT_THAT(world.advice.str(), HasSubstr("vark resume"));
}

}  // namespace
}  // namespace vark::cli
