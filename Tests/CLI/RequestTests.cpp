#include <gtest/gtest.h>

#include "Hosts/CLI/QueueHolder.h"
#include "Hosts/CLI/RequestFolder.h"
#include "Tests/CLI/CLIWorld.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::cli {
namespace {

QueueRequest sample() {
    QueueRequest request;
    request.command = QueueRequest::Command::add;
    request.named = {{"a\nb", "/home/anna/a\nb"}, {"日本", "/home/anna/日本"}};
    request.destination = "Jobs/\"2026\"";
    request.title = "Card";
    return request;
}

int filesIn(const std::filesystem::path& folder) {
    return static_cast<int>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST(Requests, WhatIsAskedAndAnsweredArrivesAsItWas) {
    TemporaryFolder home;
    RequestFolder folder(home / "requests");
    UUID id = folder.ask(sample());
    EXPECT_EQ(std::filesystem::status(home / "requests" / (id.text() + ".json")).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);

    std::vector<RequestFolder::Taken> taken = folder.takeAll(systemDate());
    ASSERT_EQ(taken.size(), 1u);
    EXPECT_EQ(taken[0].id, id);
    EXPECT_EQ(taken[0].request, sample());
    EXPECT_FALSE(folder.withdraw(id));
    EXPECT_FALSE(folder.takeAnswer(id));

    QueueAnswer answer;
    answer.changed = 2;
    answer.results = {"Added 2 files"};
    answer.refuse("Could not add x: it is gone");
    QueueView& view = answer.queue.emplace();
    view.hold = "Waiting for the network";
    view.overall.secondsLeft = 2.5;
    view.entries.resize(1);
    view.files.resize(1);
    view.files[0].error = "no";
    folder.answer(id, answer);
    EXPECT_EQ(folder.takeAnswer(id), answer);
    EXPECT_EQ(filesIn(home / "requests"), 0);
}

TEST(Requests, ARequestThatIsTakenBackIsNotTaken) {
    TemporaryFolder home;
    RequestFolder folder(home / "requests");
    UUID id = folder.ask(sample());
    EXPECT_TRUE(folder.withdraw(id));
    EXPECT_TRUE(folder.takeAll(systemDate()).empty());
}

TEST(Requests, TheOldestComesFirstAndWhatNobodyWaitsForAnyMoreIsDropped) {
    TemporaryFolder home;
    RequestFolder folder(home / "requests");
    auto now = std::filesystem::file_time_type::clock::now();
    auto asked = [&](int secondsAgo) {
        UUID id = folder.ask(sample());
        std::filesystem::last_write_time(home / "requests" / (id.text() + ".json"),
                                         now - std::chrono::seconds(secondsAgo));
        return id;
    };
    UUID second = asked(2);
    UUID first = asked(5);
    asked(3600);
    home.file("requests/AAAAAAAA-0000-4000-8000-000000000000.answer.json", "{}");
    std::filesystem::last_write_time(home / "requests/AAAAAAAA-0000-4000-8000-000000000000.answer.json",
                                     now - std::chrono::hours(1));
    std::vector<RequestFolder::Taken> taken = folder.takeAll(systemDate());
    ASSERT_EQ(taken.size(), 2u);
    EXPECT_EQ(taken[0].id, first);
    EXPECT_EQ(taken[1].id, second);
    EXPECT_EQ(filesIn(home / "requests"), 0);
}

TEST(Requests, ADamagedRequestIsTakenWithoutAMeaning) {
    for (const char* content :
         {"", "{", "[]", R"({"command":"burn","named":[],"finishedOnly":false,"replace":false})",
          R"({"command":"add","named":[1],"finishedOnly":false,"replace":false})"}) {
        TemporaryFolder home;
        home.file("requests/AAAAAAAA-0000-4000-8000-000000000000.json", content);
        std::vector<RequestFolder::Taken> taken = RequestFolder(home / "requests").takeAll(systemDate());
        ASSERT_EQ(taken.size(), 1u) << content;
        EXPECT_FALSE(taken[0].request) << content;
        EXPECT_EQ(filesIn(home / "requests"), 0) << content;
    }
}

class Asking : public ::testing::Test {
  protected:
    void holdTheLock() {
        std::filesystem::create_directories(world.surroundings.locations().storageFolder());
        other = FileLock::exclusive(world.surroundings.locations().runningLock());
    }
    Asked outcome() {
        EXPECT_TRUE(world.passTime([&] { return asking.done(); }, std::chrono::minutes(1)));
        return asking.result();
    }

    test::CLIWorld world;
    std::optional<FileLock> other;
    TaskScope scope{world.executor, world.clock};
    TaskHandle<Asked> asking;
    RequestFolder folder{world.surroundings.locations().requests()};
};

TEST_F(Asking, WithNobodyRunningTheLockIsTaken) {
    asking = scope.start(takeQueueOrAsk(world.surroundings, sample()));
    EXPECT_TRUE(outcome().lock);
    EXPECT_FALSE(std::filesystem::exists(world.surroundings.locations().requests()));
}

TEST_F(Asking, TheOneThatRunsAnswers) {
    holdTheLock();
    asking = scope.start(takeQueueOrAsk(world.surroundings, sample()));
    world.settle();
    std::vector<RequestFolder::Taken> taken = folder.takeAll(systemDate());
    ASSERT_EQ(taken.size(), 1u);
    QueueAnswer answer;
    answer.results = {"Added 2 files"};
    folder.answer(taken[0].id, answer);
    Asked asked = outcome();
    EXPECT_FALSE(asked.lock);
    EXPECT_EQ(asked.answer, answer);
}

TEST_F(Asking, AfterTenSecondsWithoutAnAnswerNothingHasBeenAskedAnyMore) {
    holdTheLock();
    asking = scope.start(takeQueueOrAsk(world.surroundings, sample()));
    Asked asked = outcome();
    EXPECT_FALSE(asked.lock);
    EXPECT_EQ(asked.answer.code, ExitCode::somethingFailed);
    EXPECT_TRUE(asked.answer.problems.at(0).contains("did not answer"));
    EXPECT_EQ(world.clock.now().time_since_epoch(), std::chrono::seconds(10));
    EXPECT_EQ(filesIn(world.surroundings.locations().requests()), 0);
}

TEST_F(Asking, WhenTheOneThatRanEndsFirstTheAskerDoesItItself) {
    holdTheLock();
    asking = scope.start(takeQueueOrAsk(world.surroundings, sample()));
    world.settle();
    other.reset();
    EXPECT_TRUE(outcome().lock);
    EXPECT_EQ(filesIn(world.surroundings.locations().requests()), 0);
}

}  // namespace
}  // namespace vark::cli
