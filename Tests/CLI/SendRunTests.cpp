#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/CLI/SendRunTest.h"
#include "VarkCore/Activity/SharedActivity.h"

namespace vark::cli {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

TEST_F(SendRunTest, TheExitCodeSaysHowItWent) {
    struct Case {
        const char* name;
        std::function<void(SendRunTest&, SendRun::Settings&)> arrange;
        ExitCode code;
        const char* said;
    };
    const Case cases[] = {
        {"all landed", [](auto&, auto&) {}, ExitCode::allLanded, ""},
        {"one failed",
         [](auto& test, auto&) { test.vark.failures["begin"] = {VarkAPIError::server(403, "No room.")}; },
         ExitCode::somethingFailed, "vark retry"},
        {"a path is not there",
         [](auto&, auto& settings) { settings.add.named.push_back(QueueRequest::Named::of("/no/such")); },
         ExitCode::somethingFailed, "/no/such"},
        {"a name is no text",
         [](auto& test, auto& settings) {
             test.world.home.file(
                 "in/b\xFF"
                 "d");
             test.world.home.file("in/.hidden");
             settings.add.named = {QueueRequest::Named::of((test.world.home / "in").string())};
         },
         ExitCode::somethingFailed, "Left out: 1 hidden. Send them too with --hidden."},
        {"a decision waits", [](auto& test, auto&) { test.vark.files["a.mov"] = "other"; },
         ExitCode::decisionWaits, "vark resolve"},
        {"a conflict is overwritten",
         [](auto& test, auto& settings) {
             test.vark.files["a.mov"] = "other";
             settings.onConflict = ConflictRule::replace;
         },
         ExitCode::allLanded, ""},
        {"the later one stays or comes",
         [](auto& test, auto& settings) {
             test.vark.files["a.mov"] = "other";
             settings.onConflict = ConflictRule::newer;
         },
         ExitCode::allLanded, ""},
        {"signed out for good",
         [](auto& test, auto&) {
             test.vark.lasting.insert({"begin", VarkAPIError::unauthorized("Device revoked.")});
             for (int n = 0; n < 3; ++n)
                 test.world.platform.vark->refusals.push_back(VarkAPIError::unauthorized("Device revoked."));
         },
         ExitCode::notConnected, "vark connect"},
        {"the time is up",
         [](auto& test, auto& settings) {
             test.vark.lasting.insert({"begin", VarkAPIError::transport("No network.")});
             settings.timeout = std::chrono::minutes(2);
         },
         ExitCode::somethingFailed, "within 2 min, so this run ends. The queue is saved."},
        {"paused, and nobody is here",
         [](auto& test, auto& settings) {
             test.begin(settings).press('p');
             test.sending->interrupt();
             test.runOn();
             settings.somebodyIsThere = false;
         },
         ExitCode::notConnected, "vark resume"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        vark.files.clear();
        vark.uploads.clear();
        vark.failures.clear();
        vark.lasting.clear();
        world.platform.vark->refusals.clear();
        world.advice.str("");
        world.results.str("");
        world.surroundings.store().save(nullptr);
        SendRun::Settings settings = adding({a, b});
        one.arrange(*this, settings);
        EXPECT_EQ(run(settings), one.code);
        EXPECT_THAT(said(), HasSubstr(one.said));
        if (one.code == ExitCode::allLanded) EXPECT_THAT(printed(), Not(HasSubstr("Waits")));
        EXPECT_TRUE(saved());
    }
}

TEST_F(SendRunTest, WithoutAPathItCarriesOnWithWhatIsSaved) {
    EXPECT_EQ(run({}), ExitCode::allLanded);
    EXPECT_THAT(said(), HasSubstr("There is no saved queue"));

    begin(adding({a, b})).interrupt();
    EXPECT_EQ(runOn(), ExitCode::interrupted);
    EXPECT_THAT(said(), HasSubstr("Carry on with: vark send"));
    EXPECT_EQ(run({}), ExitCode::allLanded);
    EXPECT_EQ(vark.files.size(), 2u);

    world.results.str("");
    EXPECT_EQ(run({}), ExitCode::allLanded);
    EXPECT_EQ(printed(), "Nothing was left to do.\n");
}

TEST_F(SendRunTest, AnswersForWhatItWasToSendAndForWhatItFoundUnfinished) {
    vark.failures["begin"] = {VarkAPIError::server(403, "No room.")};
    EXPECT_EQ(run(adding({a})), ExitCode::somethingFailed);
    // What failed before is another command's.
    EXPECT_EQ(run(adding({b})), ExitCode::allLanded);
    EXPECT_EQ(run({}), ExitCode::somethingFailed);
}

TEST_F(SendRunTest, DoesNotEndWhileAWalkIsUnderWay) {
    vark.chunkTime = std::chrono::seconds(20);
    begin(adding({a}));
    WalkGate gate(world.platform.mounted);
    const UUID id = leaveRequest(toAdd({b}));
    ASSERT_TRUE(passTimeBeside([&] { return gate.isReached() && vark.files.contains("a.mov"); }));
    const Instant landed = world.clock.now();
    ASSERT_TRUE(passTimeBeside([&] { return world.clock.now() - landed > std::chrono::minutes(1); }));
    EXPECT_FALSE(sending->ended());
    gate.open();
    EXPECT_EQ(runOn(), ExitCode::allLanded);
    EXPECT_TRUE(vark.files.contains("b.mov"));
    EXPECT_THAT(folder.takeAnswer(id).value_or(QueueAnswer()).results, Contains(Said("Added 1 file")));
}

TEST_F(SendRunTest, BrokenOffInAWalkSaysWhatWasNotAdded) {
    WalkGate gate(world.platform.mounted);
    sending.emplace(world.surroundings, connection, nullptr, adding({a}), display);
    ASSERT_TRUE(passTimeBeside([&] { return gate.isReached(); }));
    const UUID another = leaveRequest(toAdd({b}));
    ASSERT_TRUE(passTimeBeside([&] { return !folder.isWaiting(another); }));
    sending->interrupt();
    gate.open();
    EXPECT_EQ(runOn(), ExitCode::interrupted);
    EXPECT_EQ(said(), "Not added, since it was still being looked through: " + a.string() +
                          ". Send it again.\nStopped.\n");
    // Whoever asked meanwhile sees the end of this run, and does it himself.
    EXPECT_FALSE(folder.takeAnswer(another));
    EXPECT_TRUE(vark.files.empty());
}

TEST_F(SendRunTest, AQueueThatCannotBeSavedIsNotSaidToBe) {
    vark.chunkTime = std::chrono::seconds(20);
    begin(adding({a, b}));
    const std::filesystem::path queue = world.surroundings.store().url();
    std::filesystem::remove(queue);
    world.home.file((queue / "in the way").lexically_relative(world.home.path()).string());
    const QueueAnswer answer = ask(QueueRequest::Command::pause);
    EXPECT_EQ(answer.outcome, Outcome::failed);
    EXPECT_THAT(answer.problems, Contains(Telling(queue.string())));
    world.passTime([] { return false; }, std::chrono::seconds(5));
    EXPECT_THAT(said(), HasSubstr(queue.string()));
    sending->interrupt();
    EXPECT_EQ(runOn(), ExitCode::somethingFailed);
    EXPECT_THAT(said(), Not(HasSubstr("The queue is saved")));
}

TEST_F(SendRunTest, OnlyWhatWasSentIsToldInTheListOfActivity) {
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(run(adding({world.home / "in"})), ExitCode::allLanded);
        const std::vector<ActivityEntry> lines = SharedActivity::read(world.surroundings.sharedFolder());
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].text, "Sent 2 files");
        EXPECT_EQ(lines[0].count, 2) << "what was already in the vark was not sent";
        world.surroundings.store().save(nullptr);
    }
}

TEST_F(SendRunTest, AQueueThatTheVarkPausedGoesOnAtTheNextRunWhenTheTokenIsGood) {
    vark.lasting.insert({"begin", VarkAPIError::unauthorized()});
    world.platform.vark->refusals.assign(3, VarkAPIError::unauthorized());
    EXPECT_EQ(run(adding({a})), ExitCode::notConnected);
    EXPECT_TRUE(saved()->isPaused);
    world.platform.vark->refusals.assign(1, VarkAPIError::unauthorized());
    EXPECT_EQ(run({}), ExitCode::notConnected);
    vark.lasting.clear();
    EXPECT_EQ(run({}), ExitCode::allLanded);
}

TEST_F(SendRunTest, TheWholeQueueGoesToOnePlace) {
    SendRun::Settings settings = adding({a});
    settings.add.destination = "Jobs";
    begin(settings).interrupt();
    runOn();

    settings = adding({b});
    settings.add.destination = "Elsewhere";
    EXPECT_EQ(run(settings), ExitCode::usage);
    EXPECT_THAT(said(), HasSubstr("The queue goes to Jobs"));
    EXPECT_EQ(saved()->entries.size(), 1u);
    EXPECT_TRUE(vark.files.empty());

    EXPECT_EQ(run({}), ExitCode::allLanded);
    // A queue that has finished makes room for the next.
    EXPECT_EQ(run(settings), ExitCode::allLanded);
    EXPECT_TRUE(vark.files.contains("Elsewhere/b.mov"));
    EXPECT_EQ(saved()->entries.size(), 1u);
}

TEST_F(SendRunTest, AQueueForAnotherClientIsNotSentToThisOne) {
    begin(adding({a})).interrupt();
    runOn();
    connection.clientName = "Beta";
    EXPECT_EQ(run(adding({b})), ExitCode::usage);
    EXPECT_EQ(run({}), ExitCode::usage);
    EXPECT_THAT(said(), HasSubstr("is for Acme"));
    EXPECT_TRUE(vark.files.empty());
}

TEST_F(SendRunTest, OtherRunsAskWhileItSends) {
    vark.chunkTime = std::chrono::seconds(20);
    begin(adding({a}));
    EXPECT_EQ(ask(QueueRequest::Command::pause).outcome, Outcome::done);
    EXPECT_TRUE(saved()->isPaused);
    QueueRequest add;
    add.command = QueueRequest::Command::add;
    add.named = {QueueRequest::Named::of(b.string()), QueueRequest::Named::of(a.string()), {"x", "/no/such"}};
    QueueAnswer answer = ask(add);
    EXPECT_EQ(answer.outcome, Outcome::failed);
    EXPECT_THAT(answer.results, Contains(Said("Added 1 file")));
    EXPECT_EQ(answer.entries.size(), 2u);
    EXPECT_THAT(answer.problems, Contains(Telling("/no/such")));
    // What is said to be in the queue is on the disk.
    EXPECT_EQ(saved()->entries.size(), 2u);

    QueueRequest remove;
    remove.command = QueueRequest::Command::remove;
    remove.named = {{"1", "/elsewhere/1"}, {"b.mov", "/elsewhere/b.mov"}, {"9", "/elsewhere/9"}};
    answer = ask(remove);
    EXPECT_EQ(answer.problems.size(), 1u);
    EXPECT_EQ(saved()->entries.size(), 0u);
    EXPECT_EQ(vark.count("cancel"), 1);
    EXPECT_EQ(runOn(), ExitCode::somethingFailed);
}

TEST_F(SendRunTest, ASavedQueueThatCannotBeReadIsNeverLost) {
    const std::filesystem::path queue = world.surroundings.store().url();
    std::filesystem::create_directories(queue.parent_path());
    std::ofstream(queue) << "{damaged";
    EXPECT_EQ(run({}), ExitCode::somethingFailed);
    EXPECT_THAT(said(), HasSubstr("cannot be read"));
    EXPECT_EQ(readWholeFile(queue), "{damaged");

    EXPECT_EQ(run(adding({a})), ExitCode::allLanded);
    EXPECT_EQ(readWholeFile(world.surroundings.locations().damagedQueue()), "{damaged");
    EXPECT_EQ(saved()->items.size(), 1u);
}

TEST_F(SendRunTest, WaitsForTheEndOfOfficeHours) {
    SendRun::Settings settings = adding({b});
    // Every minute of every day is between these two, but for weekends.
    settings.pace.hours = WorkingHours{0, 24 * 60};
    WallClock wednesday = [] { return *dateFromISO8601("2026-02-04T12:00:00Z"); };
    CommandSurroundings atWork(world.platform, world.console, world.executor, world.clock, wednesday);
    SendRun waiting(atWork, connection, nullptr, settings, display);
    EXPECT_TRUE(passTimeBeside([&] { return printed().contains("outside office hours only"); }));
    EXPECT_TRUE(vark.calls.empty());
    waiting.interrupt();
}

TEST_F(SendRunTest, ProgramsGetOneObjectForEachThingThatHappens) {
    JSONDisplay json(world.console, [] { return *dateFromISO8601("2026-02-03T04:05:06Z"); });
    sending.emplace(world.surroundings, connection, nullptr, adding({a}), json);
    EXPECT_EQ(runOn(), ExitCode::allLanded);
    EXPECT_EQ(printed(),
              "{\"event\":\"landed\",\"at\":\"2026-02-03T04:05:06Z\",\"path\":\"a.mov\",\"localPath\":\"" +
                  a.string() +
                  "\",\"size\":250,\"alreadyThere\":false,\"nodes\":[],\"internet\":false}\n"
                  "{\"event\":\"finished\",\"at\":\"2026-02-03T04:05:06Z\",\"verified\":1,\"failed\":0,"
                  "\"skipped\":0,"
                  "\"conflicts\":0,\"changed\":0,\"takenAway\":0,\"bytesVerified\":250,\"exitCode\":0}\n");
}

}  // namespace
}  // namespace vark::cli
