#include "Tests/CLI/SendRunTest.h"

namespace vark::cli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// The same person with a card of three files.
class IngestRunTest : public SendRunTest {
  public:
    IngestRunTest() {
        for (const char* name : {"DCIM/1.jpg", "DCIM/2.jpg", "MISC/x.dat"})
            world.home.file(std::string("ALPHA/") + name, std::string(100, name[5]));
        plug();
    }
    void plug(const char* id = "1234-ABCD") {
        world.platform.mounted.table = {
            {.name = "ALPHA", .path = world.home / "ALPHA", .id = id, .ejectable = true}};
        tell();
    }
    /// Its empty place stays, as in a machine whose table of disks names it.
    void pull() {
        world.platform.mounted.table.clear();
        tell();
    }
    void tell() {
        if (world.platform.mounted.changed) world.platform.mounted.changed();
        world.settle();
    }
    SendRun::Settings card() {
        SendRun::Settings settings;
        settings.ingest = IngestWish{.volume = world.platform.mounted.table.at(0),
                                     .isCard = true,
                                     .destination = "Jobs",
                                     .title = "2025-03-03 ALPHA",
                                     .leaveOut = {}};
        return settings;
    }
    void beginSending() {
        vark.chunkTime = std::chrono::seconds(5);
        begin(card());
        ASSERT_TRUE(world.passTime([&] { return !vark.uploads.empty(); }));
    }

    test::TestVark& server = *world.platform.vark;
    const std::string safe = "Every file of ALPHA has landed and been checked: it is safe to clear.\n";
};

TEST_F(IngestRunTest, AnnouncesSendsAndReportsOnce) {
    EXPECT_EQ(run(card()), ExitCode::allLanded);
    EXPECT_EQ(server.announced, 1);
    EXPECT_EQ(vark.files.size(), 3U);
    EXPECT_THAT(said(), HasSubstr("3 files · 300 bytes from the card \"ALPHA\"\n"));
    EXPECT_THAT(printed(), HasSubstr(safe));
    ASSERT_EQ(server.reports.size(), 1U);
    EXPECT_TRUE(saved()->ingest->reported);
    // Looked through again, and not told again.
    EXPECT_EQ(run({}), ExitCode::allLanded);
    EXPECT_EQ(server.reports.size(), 1U);
}

TEST_F(IngestRunTest, WaitsForACardThatIsPulledOutAndForNoOtherOfItsName) {
    beginSending();
    pull();
    const std::string waiting = "Plug ALPHA back in to carry on. Nothing is lost.\n";
    ASSERT_TRUE(world.passTime([&] { return printed() == waiting; }, std::chrono::seconds(1)));
    plug("5678-EF01");
    EXPECT_FALSE(world.passTime([&] { return sending->ended().has_value(); }, std::chrono::minutes(5)));
    plug();
    EXPECT_EQ(runOn(), ExitCode::allLanded);
    EXPECT_EQ(vark.files.size(), 3U);
}

TEST_F(IngestRunTest, IsNotOverWhileADecisionWaits) {
    vark.files["Jobs/ALPHA/DCIM/2.jpg"] = "other";
    EXPECT_EQ(run(card()), ExitCode::decisionWaits);
    EXPECT_THAT(server.reports, IsEmpty());
    SendRun::Settings settings;
    settings.onConflict = ConflictRule::replace;
    EXPECT_EQ(run(settings), ExitCode::allLanded);
    EXPECT_EQ(server.reports.size(), 1U);
    EXPECT_THAT(printed(), HasSubstr(safe));
}

TEST_F(IngestRunTest, AReportThatDoesNotGetThroughIsMadeBeforeAnythingElseIsSent) {
    begin(card());
    ASSERT_TRUE(world.passTime([&] { return server.announced == 1; }));
    EXPECT_TRUE(saved() && saved()->ingest) << "killed now, the next run would announce it again";
    const VarkAPIError silence = VarkAPIError::transport("No network.");
    server.ingestFailures.assign(4, silence);
    EXPECT_EQ(runOn(), ExitCode::somethingFailed);
    EXPECT_THAT(said(), HasSubstr("The vark could not be told that the ingest of ALPHA is over"));
    server.ingestFailures.assign(4, silence);
    EXPECT_EQ(run(adding({a})), ExitCode::somethingFailed);
    EXPECT_FALSE(vark.files.contains("a.mov"));
    // What passes is tried again by itself.
    server.ingestFailures.assign(3, silence);
    EXPECT_EQ(run(adding({a})), ExitCode::allLanded);
    EXPECT_EQ(server.reports.size(), 1U);
    EXPECT_TRUE(vark.files.contains("a.mov"));
}

TEST_F(IngestRunTest, WhatCannotBeBroughtInLeavesTheQueueAsItIs) {
    struct Case {
        const char* name;
        std::function<void(IngestRunTest&, SendRun::Settings&)> arrange;
        ExitCode code;
        const char* said;
    };
    const Case cases[] = {
        {"no room", [](auto& test, auto&) { test.server.ingestStart = {8, false, 100}; },
         ExitCode::somethingFailed, "it takes 300 bytes, and 100 bytes are free there."},
        {"nothing of that name", [](auto&, auto& settings) { settings.ingest->leaveOut = {"DCIM", "misc"}; },
         ExitCode::usage, "Nothing on ALPHA is called misc."},
        {"a queue that is not finished",
         [](auto& test, auto&) {
             test.begin(adding({test.a})).interrupt();
             test.runOn();
         },
         ExitCode::usage, "The queue is not finished"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        server.ingestStart.fits = true;
        SendRun::Settings settings = card();
        one.arrange(*this, settings);
        const bool hadQueue = saved().has_value();
        EXPECT_EQ(run(settings), one.code);
        EXPECT_THAT(said(), HasSubstr(one.said));
        EXPECT_EQ(saved().has_value(), hadQueue);
        EXPECT_TRUE(vark.files.empty());
    }
    // The one that was announced has been ended, with all of it named.
    ASSERT_EQ(server.reports.size(), 1U);
    EXPECT_EQ(server.reports[0].id, 8);
    EXPECT_EQ(server.reports[0].notSent.at(2).source, "MISC/x.dat");
}

TEST_F(IngestRunTest, TheSameCommandTriesAgainWhatFailed) {
    vark.failures["finish"].push_back(VarkAPIError::server(400, "Too large."));
    EXPECT_EQ(run(card()), ExitCode::somethingFailed);
    EXPECT_THAT(printed(), HasSubstr("Do not clear ALPHA yet: 2 files landed and checked, but 1 thing"));
    EXPECT_EQ(run(card()), ExitCode::allLanded);
    EXPECT_EQ(server.announced, 1);
    EXPECT_THAT(printed(), HasSubstr(safe));
}

TEST_F(IngestRunTest, WhileACardIsBroughtInNothingIsAddedAndWhatIsRemovedIsToldAsNotSent) {
    beginSending();
    EXPECT_THAT(ask(adding({a}).add).problems, ElementsAre(Telling("The queue is bringing in ALPHA")));
    QueueRequest request;
    request.command = QueueRequest::Command::remove;
    request.named = {QueueRequest::Named::of("1")};
    ask(request);
    EXPECT_EQ(runOn(), ExitCode::somethingFailed);
    ASSERT_EQ(server.reports.size(), 1U);
    ASSERT_EQ(server.reports[0].notSent.size(), 3U);
    EXPECT_EQ(server.reports[0].notSent[0].why, "It was removed from the queue.");
}

TEST_F(IngestRunTest, ACardThatIsGivenUpIsEndedAtTheVarkOrThePersonKnowsThatItIsNot) {
    QueueRequest request;
    request.command = QueueRequest::Command::clear;
    for (const bool isReached : {true, false}) {
        SCOPED_TRACE(isReached);
        begin(card()).interrupt();
        runOn();
        server.reports.clear();
        if (!isReached) server.ingestFailures = {VarkAPIError::transport("No network.")};
        const QueueAnswer answer = world.surroundings.await(changeQueue(world.surroundings, request));
        EXPECT_EQ(answer.outcome, isReached ? Outcome::done : Outcome::failed);
        EXPECT_EQ(saved(), std::nullopt);
        EXPECT_EQ(server.reports.size(), isReached ? 1U : 0U);
        if (!isReached)
            EXPECT_THAT(answer.problems, ElementsAre(Telling("could not be told that ALPHA will not come")));
    }
}

}  // namespace
}  // namespace vark::cli
