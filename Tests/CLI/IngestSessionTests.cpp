#include "Tests/CLI/SendSessionTest.h"

namespace vark::cli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// The same person with a card of three files.
class IngestSessionTest : public SendSessionTest {
  public:
    IngestSessionTest() {
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
    SendSession::Settings card(std::vector<std::string> leaveOut = {}) {
        SendSession::Settings settings;
        settings.ingest = IngestWish{.volume = world.platform.mounted.table.at(0),
                                     .isCard = true,
                                     .destination = "Jobs",
                                     .title = "2025-03-03 ALPHA",
                                     .leaveOut = std::move(leaveOut)};
        return settings;
    }

    test::TestVark& server = *world.platform.vark;
    const std::string waiting = "Plug ALPHA back in to carry on. Nothing is lost.\n";
    const std::string safe = "Every file of ALPHA has landed and been checked: it is safe to clear.\n";
};

TEST_F(IngestSessionTest, AnnouncesSendsAndReportsOnce) {
    EXPECT_EQ(run(card()), ExitCode::allLanded);
    EXPECT_EQ(server.announced, 1);
    EXPECT_EQ(vark.files.size(), 3U);
    EXPECT_THAT(said(), HasSubstr("3 files · 300 bytes from the card \"ALPHA\"\n"));
    EXPECT_THAT(printed(), HasSubstr(safe));
    ASSERT_EQ(server.reports.size(), 1U);
    EXPECT_EQ(server.reports[0].id, 7);
    EXPECT_TRUE(saved()->ingest->reported);

    // Looked through again, and not told again.
    EXPECT_EQ(run({}), ExitCode::allLanded);
    EXPECT_EQ(server.reports.size(), 1U);
    // What is sent after it is no part of it.
    EXPECT_EQ(run(adding({a})), ExitCode::allLanded);
    EXPECT_EQ(saved()->ingest, std::nullopt);
}

TEST_F(IngestSessionTest, WaitsForACardThatIsPulledOutAndForNoOtherOfItsName) {
    vark.chunkTime = std::chrono::seconds(5);
    begin(card());
    ASSERT_TRUE(world.passTime([&] { return !vark.uploads.empty(); }));
    pull();
    ASSERT_TRUE(world.passTime([&] { return printed() == waiting; }, std::chrono::seconds(1)));
    plug("5678-EF01");
    EXPECT_FALSE(world.passTime([&] { return session->ended().has_value(); }, std::chrono::minutes(5)));
    plug();
    EXPECT_EQ(runOn(), ExitCode::allLanded);
    EXPECT_THAT(printed(), HasSubstr("Carrying on\n"));
    EXPECT_EQ(vark.files.size(), 3U);
}

TEST_F(IngestSessionTest, IsNotOverWhileADecisionWaits) {
    vark.files["Jobs/ALPHA/DCIM/2.jpg"] = "other";
    EXPECT_EQ(run(card()), ExitCode::decisionWaits);
    EXPECT_THAT(server.reports, IsEmpty());
    SendSession::Settings settings;
    settings.replaceConflicts = true;
    EXPECT_EQ(run(settings), ExitCode::allLanded);
    EXPECT_EQ(server.reports.size(), 1U);
    EXPECT_THAT(printed(), HasSubstr(safe));
}

TEST_F(IngestSessionTest, AReportThatDoesNotGetThroughIsMadeBeforeAnythingElseIsSent) {
    begin(card());
    ASSERT_TRUE(world.passTime([&] { return server.announced == 1; }));
    EXPECT_TRUE(saved() && saved()->ingest) << "killed now, the next run would announce it again";
    server.ingestFailures.assign(4, VarkAPIError::transport("No network."));
    EXPECT_EQ(runOn(), ExitCode::somethingFailed);
    EXPECT_THAT(said(), HasSubstr("The vark could not be told that the ingest of ALPHA is over"));
    EXPECT_THAT(server.reports, IsEmpty());

    server.ingestFailures.assign(4, VarkAPIError::transport("No network."));
    EXPECT_EQ(run(adding({a})), ExitCode::somethingFailed);
    EXPECT_FALSE(vark.files.contains("a.mov"));
    // What passes is tried again by itself.
    server.ingestFailures.assign(3, VarkAPIError::transport("No network."));
    EXPECT_EQ(run(adding({a})), ExitCode::allLanded);
    EXPECT_EQ(server.reports.size(), 1U);
    EXPECT_TRUE(vark.files.contains("a.mov"));
}

TEST_F(IngestSessionTest, WhatCannotBeBroughtInLeavesTheQueueAsItIs) {
    struct Case {
        const char* name;
        std::function<void(IngestSessionTest&, SendSession::Settings&)> arrange;
        ExitCode code;
        const char* said;
    };
    const Case cases[] = {
        {"no room", [](auto& test, auto&) { test.server.ingestStart = {8, false, 100}; },
         ExitCode::somethingFailed,
         "ALPHA does not fit into the vark: it takes 300 bytes, and 100 bytes are free there."},
        {"refused",
         [](auto& test, auto&) {
             test.server.ingestFailures = {VarkAPIError::unauthorized("Device revoked.")};
         },
         ExitCode::notConnected, "Device revoked."},
        {"nothing of that name", [](auto&, auto& settings) { settings.ingest->leaveOut = {"DCIM", "misc"}; },
         ExitCode::usage, "Nothing on ALPHA is called misc."},
        {"nothing that can be sent",
         [](auto& test, auto& settings) {
             test.world.home.file("ALPHA/.hidden");
             settings.ingest->leaveOut = {"DCIM", "MISC"};
         },
         ExitCode::somethingFailed,
         "Nothing to send from the card \"ALPHA\"\nDo not clear ALPHA yet: 0 files landed and checked, but 3 "
         "things on it are not in the vark"},
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
        world.advice.str("");
        SendSession::Settings settings = card();
        one.arrange(*this, settings);
        const std::optional<TransferJob> before = saved();
        EXPECT_EQ(run(settings), one.code);
        EXPECT_THAT(said(), HasSubstr(one.said));
        EXPECT_EQ(saved().has_value(), before.has_value());
        EXPECT_TRUE(vark.files.empty());
    }
    // The one that was announced has been ended, with all of it named.
    ASSERT_EQ(server.reports.size(), 1U);
    EXPECT_EQ(server.reports[0].id, 8);
    EXPECT_EQ(server.reports[0].notSent.size(), 3U);
    EXPECT_EQ(server.reports[0].notSent[0].source, "DCIM/1.jpg");
}

TEST_F(IngestSessionTest, TheSameCommandTriesAgainWhatFailed) {
    vark.failures["finish"].push_back(VarkAPIError::server(400, "Too large."));
    EXPECT_EQ(run(card()), ExitCode::somethingFailed);
    EXPECT_THAT(printed(), HasSubstr("Do not clear ALPHA yet: 2 files landed and checked, but 1 thing"));
    EXPECT_EQ(run(card()), ExitCode::allLanded);
    EXPECT_EQ(server.announced, 1);
    EXPECT_EQ(vark.files.size(), 3U);
    EXPECT_THAT(printed(), HasSubstr(safe));
}

TEST_F(IngestSessionTest, CarriesOnAsItIsAskedToOrSaysWhyNot) {
    begin(card()).interrupt();
    runOn();
    struct Case {
        std::function<void(IngestWish&)> ask;
        const char* said;
    };
    const Case refused[] = {
        {[](IngestWish& wish) {
             wish.destination = "Elsewhere";
             wish.asksForDestination = true;
         },
         "ALPHA is being brought into Jobs, and the whole of it goes to one place."},
        {[](IngestWish& wish) { wish.emailMe = true; }, "nobody wants a mail about ALPHA"},
        {[](IngestWish& wish) { wish.leaveOut = {"MISC", "misc"}; }, "Nothing on ALPHA is called misc."},
    };
    for (const Case& one : refused) {
        SendSession::Settings settings = card();
        one.ask(*settings.ingest);
        EXPECT_EQ(run(settings), ExitCode::usage);
        EXPECT_THAT(said(), HasSubstr(one.said));
        EXPECT_TRUE(vark.files.empty());
    }
    SendSession::Settings settings = card({"MISC"});
    settings.ingest->asksForDestination = true;
    EXPECT_EQ(run(settings), ExitCode::somethingFailed);
    EXPECT_EQ(vark.files.size(), 2U);
    EXPECT_EQ(server.announced, 1);
    ASSERT_EQ(server.reports.size(), 1U);
    EXPECT_THAT(server.reports[0].leftOut, ElementsAre("MISC"));
    EXPECT_THAT(server.reports[0].notSent, IsEmpty());
    EXPECT_THAT(printed(), HasSubstr("  MISC: It was left out.\n"));
}

TEST_F(IngestSessionTest, WhatIsRemovedFromTheQueueIsToldAsNotSent) {
    vark.chunkTime = std::chrono::seconds(5);
    begin(card());
    ASSERT_TRUE(world.passTime([&] { return !vark.uploads.empty(); }));
    QueueRequest request;
    request.command = QueueRequest::Command::remove;
    request.named = {QueueRequest::Named::of("1")};
    ask(request);
    EXPECT_EQ(runOn(), ExitCode::somethingFailed);
    ASSERT_EQ(server.reports.size(), 1U);
    ASSERT_EQ(server.reports[0].notSent.size(), 3U);
    EXPECT_EQ(server.reports[0].notSent[0].why, "It was removed from the queue.");
    EXPECT_THAT(printed(), HasSubstr("Do not clear ALPHA yet: 0 files landed and checked, but 3 things"));
}

TEST_F(IngestSessionTest, ACardThatIsGivenUpIsEndedAtTheVarkOrThePersonKnowsThatItIsNot) {
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
        ASSERT_EQ(server.reports.size(), isReached ? 1U : 0U);
        if (isReached) {
            EXPECT_EQ(server.reports[0].notSent.size(), 3U);
        } else {
            EXPECT_THAT(answer.problems,
                        ElementsAre(Telling("The vark could not be told that ALPHA will not come")));
        }
    }
}

TEST_F(IngestSessionTest, NothingElseIsAddedWhileACardIsBroughtIn) {
    vark.chunkTime = std::chrono::seconds(5);
    begin(card());
    ASSERT_TRUE(world.passTime([&] { return !vark.uploads.empty(); }));
    QueueRequest request = adding({a}).add;
    EXPECT_THAT(ask(request).problems, ElementsAre(Telling("The queue is bringing in ALPHA")));
    EXPECT_EQ(runOn(), ExitCode::allLanded);
    EXPECT_EQ(vark.files.size(), 3U);
}

}  // namespace
}  // namespace vark::cli
