#include <gtest/gtest.h>

#include "Tests/VarkApp/AppWorld.h"
#include "VarkApp/Queue/QueueHolder.h"
#include "VarkApp/Queue/RequestFolder.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::app {
namespace {

QueueRequest sample() {
    QueueRequest request;
    request.command = QueueRequest::Command::add;
    request.named = {{"a\nb", "/home/anna/a\nb"}, {"日本", "/home/anna/日本"}};
    request.destination = "Jobs/\"2026\"";
    request.title = "Card";
    request.rule = ConflictRule::keepBoth;
    request.walk = {.hidden = true, .followLinks = true, .filter = {{"*.tmp"}, {"*.mov", "DCIM/"}}};
    return request;
}

int filesIn(const std::filesystem::path& folder) {
    return static_cast<int>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST(Requests, WhatIsAskedAndAnsweredArrivesAsItWas) {
    TemporaryFolder home;
    const RequestFolder folder(home / "requests");
    const UUID id = folder.ask(sample());
    EXPECT_EQ(std::filesystem::status(home / "requests" / (id.text() + ".json")).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    const std::optional<RequestFolder::Taken> taken = folder.takeNext(systemDate());
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->id, id);
    EXPECT_EQ(taken->request, sample());
    EXPECT_FALSE(folder.withdraw(id));
    EXPECT_FALSE(folder.takeAnswer(id));

    QueueAnswer answer;
    answer.changed = 2;
    answer.results = {"Added 2 files"};
    answer.refuse({"Could not add x.", {{Next::Step::carryOn, "Finish it"}, {Next::Step::giveUp}}});
    answer.entries = {UUID::random().text()};
    answer.leftOut = {
        .hidden = 1, .links = 2, .special = 3, .emptyFolders = 4, .excluded = 6, .unreadable = 5};
    QueueView& view = answer.queue.emplace();
    view.outage = OutageView{*dateFromISO8601("2026-02-03T04:05:06Z"), "No network.", 8};
    view.hold = "Waiting for the network";
    view.overall.secondsLeft = 2.5;
    view.overall.filesChanged = 6;
    view.entries.resize(1);
    view.entries[0].isGone = true;
    view.entries[0].progress.changed = 7;
    view.files.resize(1);
    view.files[0].error = "no";
    folder.answer(id, answer);
    EXPECT_EQ(folder.takeAnswer(id), answer);
    EXPECT_EQ(filesIn(home / "requests"), 0);
}

TEST(Requests, TheOldestIsTakenAndWhatNobodyWaitsForAnyMoreIsDropped) {
    TemporaryFolder home;
    const RequestFolder folder(home / "requests");
    const auto now = std::filesystem::file_time_type::clock::now();
    auto asked = [&](int secondsAgo) {
        UUID id = folder.ask(sample());
        std::filesystem::last_write_time(home / "requests" / (id.text() + ".json"),
                                         now - std::chrono::seconds(secondsAgo));
        return id;
    };
    const UUID second = asked(2);
    const UUID first = asked(5);
    asked(3600);
    const char* old = "requests/AAAAAAAA-0000-4000-8000-000000000000.answer.json";
    std::filesystem::last_write_time(home.file(old, "{}"), now - std::chrono::hours(1));
    EXPECT_TRUE(folder.withdraw(asked(7)));
    EXPECT_EQ(folder.takeNext(systemDate())->id, first);
    // Whoever ends here leaves the other one to its asker.
    EXPECT_TRUE(folder.isWaiting(second));
    EXPECT_EQ(folder.takeNext(systemDate())->id, second);
    EXPECT_EQ(filesIn(home / "requests"), 0);
}

TEST(Requests, ADamagedRequestIsTakenWithoutAMeaning) {
    for (const char* content :
         {"", "[]", R"({"command":"burn","named":[],"finishedOnly":false,"replace":false})",
          R"({"command":"add","named":[1],"finishedOnly":false,"replace":false})"}) {
        TemporaryFolder home;
        home.file("requests/AAAAAAAA-0000-4000-8000-000000000000.json", content);
        const std::optional<RequestFolder::Taken> taken =
            RequestFolder(home / "requests").takeNext(systemDate());
        ASSERT_TRUE(taken) << content;
        EXPECT_FALSE(taken->request) << content;
        EXPECT_EQ(filesIn(home / "requests"), 0) << content;
    }
}

class Asking : public ::testing::Test {
  protected:
    void holdTheLock() {
        std::filesystem::create_directories(world.surroundings.locations().storageFolder());
        other = FileLock::exclusive(world.surroundings.locations().runningLock());
    }
    void ask(const QueueRequest& request) {
        asking = scope.start(takeQueueOrAsk(world.surroundings, request));
        world.settle();
    }
    Asked outcome() {
        EXPECT_TRUE(world.passTime([&] { return asking.done(); }, std::chrono::minutes(1)));
        return asking.result();
    }

    test::AppWorld world;
    std::optional<FileLock> other;
    TaskScope scope{world.executor, world.clock};
    TaskHandle<Asked> asking;
    RequestFolder folder{world.surroundings.locations().requests()};
};

TEST_F(Asking, TheOneThatRunsAnswersHoweverLongItWalks) {
    holdTheLock();
    ask(sample());
    const std::optional<RequestFolder::Taken> taken = folder.takeNext(systemDate());
    ASSERT_TRUE(taken);
    world.passTime([] { return false; }, std::chrono::minutes(3));
    QueueAnswer answer;
    answer.results = {"Added 2 files"};
    folder.answer(taken->id, answer);
    const Asked asked = outcome();
    EXPECT_FALSE(asked.lock);
    EXPECT_EQ(asked.answer, answer);
}

TEST_F(Asking, AfterTenSecondsUntakenNothingHasBeenAskedAnyMore) {
    holdTheLock();
    ask(sample());
    const Asked asked = outcome();
    EXPECT_FALSE(asked.lock);
    EXPECT_EQ(asked.answer.outcome, Outcome::failed);
    EXPECT_TRUE(asked.answer.problems.at(0).text.contains("did not answer"));
    EXPECT_LT(world.clock.now().time_since_epoch(), std::chrono::seconds(11));
    EXPECT_EQ(filesIn(world.surroundings.locations().requests()), 0);
}

TEST_F(Asking, WhenTheOneThatRanEndsFirstTheAskerDoesItItselfUnlessItMayBeDone) {
    struct Case {
        QueueRequest::Command command;
        bool wasTaken, getsTheLock;
    };
    for (const Case& one :
         {Case{QueueRequest::Command::add, false, true}, Case{QueueRequest::Command::add, true, true},
          Case{QueueRequest::Command::remove, false, true},
          Case{QueueRequest::Command::remove, true, false}}) {
        holdTheLock();
        QueueRequest request = sample();
        request.command = one.command;
        ask(request);
        if (one.wasTaken) folder.takeNext(systemDate());
        other.reset();
        const Asked asked = outcome();
        EXPECT_EQ(asked.lock != nullptr, one.getsTheLock);
        EXPECT_EQ(asked.answer.problems.size(), one.getsTheLock ? 0u : 1u);
        EXPECT_EQ(filesIn(world.surroundings.locations().requests()), 0);
        asking = {};
    }
}

TEST(TakingTheQueue, TheProcessListCountsWhereTheLockCannotBeHad) {
    test::AppWorld world;
    EXPECT_NE(takeQueue(world.surroundings), nullptr);
    world.platform.senders = {1};
    // Who holds the lock is alone, whatever else is starting.
    EXPECT_NE(takeQueue(world.surroundings), nullptr);
    const std::filesystem::path lock = world.surroundings.locations().runningLock();
    std::filesystem::remove(lock);
    std::filesystem::create_directories(lock);
    EXPECT_EQ(takeQueue(world.surroundings), nullptr);
    world.platform.senders.clear();
    EXPECT_NE(takeQueue(world.surroundings), nullptr);
}

}  // namespace
}  // namespace vark::app
