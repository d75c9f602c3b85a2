#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

class Token : public EndToEndTest {
  protected:
    /// Leaves a queue behind that the vark paused because it does not know the token.
    void leaveQueuePausedByTheVark(const SampleFile& file) {
        box.control("POST", "/control/sign-out");
        Process sending = startSend(file);
        ASSERT_TRUE(untilDiary("the queue is paused while that is checked", sending));
        sending.signal(SIGINT);
        ASSERT_EQ(sending.wait(), exitCode(130)) << sending.errors();
    }
};

TEST_F(Token, RefusedOnceLetsTheSameRunCarryOn) {
    fault(R"({"kind": "refuse_token", "path": "/api/upload/begin", "count": 1})");
    SampleFile file = this->file("Take.mov", 2 * chunkSize);
    expectExit(send(file), 0);
    expectHeld(file);
    EXPECT_THAT(vark.diary(), HasSubstr("The vark refused this Mac's token"));
    EXPECT_THAT(vark.diary(), HasSubstr("Resumed"));
}

TEST_F(Token, RefusedForGoodKeepsTheQueueForTheRunAfterItIsGoodAgain) {
    SampleFile file = this->file("Take.mov", 2 * chunkSize);
    leaveQueuePausedByTheVark(file);
    boost::json::object job = vark.savedJob();
    EXPECT_TRUE(job.at("isPaused").as_bool());
    EXPECT_TRUE(job.at("pausedByVark").as_bool());

    Finished refused = vark.run({"send"});
    expectExit(refused, 3);
    EXPECT_THAT(refused.errors, HasSubstr("vark connect"));

    box.control("POST", "/control/sign-in");
    expectExit(vark.run({"send"}), 0);
    expectHeld(file);
}

TEST_F(Token, GoodAgainDoesNotLiftAPersonsPause) {
    SampleFile file = this->file("Take.mov", 2 * chunkSize);
    leaveQueuePausedByTheVark(file);
    expectExit(vark.run({"pause"}), 0);
    box.control("POST", "/control/sign-in");

    Process waiting = vark.start({"send"});
    FileWatch watch(vark.runsFolder());
    ASSERT_TRUE(
        watch.until([&] { return (waiting.output() + waiting.errors()).find("aused") != std::string::npos; },
                    std::chrono::minutes(1), waiting.descriptor()));
    EXPECT_TRUE(box.files().empty());
    expectExit(vark.run({"resume"}), 0);
    EXPECT_EQ(waiting.wait(), exitCode(0)) << waiting.errors();
    expectHeld(file);
}

TEST_F(Token, TakenAwayWhileSendingEndsTheRunAndLosesNothing) {
    SampleFile file = this->file("Take.mov", 20 * chunkSize);
    Process sending = startSend(file, {"--rate", "2MB"});
    ASSERT_TRUE(untilAnswered("PUT", "/u/", 200));
    expectExit(vark.run({"disconnect"}), 0);
    EXPECT_EQ(sending.wait(), exitCode(3)) << sending.output() << sending.errors();

    vark.connect(box);
    expectExit(vark.run({"send"}), 0);
    expectHeld(file);
    EXPECT_THAT(vark.diary(), HasSubstr("Resuming"));
}

TEST_F(Token, IsWrittenNowhereButInItsOwnFiles) {
    SampleFile file = this->file("Take.mov", 20 * chunkSize);
    Process sending = startSend(file, {"--rate", "4MB", "--json"});
    ASSERT_TRUE(untilAnswered("PUT", "/u/", 200));
    fs::path process = fs::path("/proc") / std::to_string(sending.pid());
    for (const char* shown : {"cmdline", "environ"})
        EXPECT_EQ(readWholeFile(process / shown).find(box.token()), std::string::npos) << shown;
    expectExit({sending.wait(), sending.output(), sending.errors()}, 0);
    expectExit(vark.run({"whoami"}), 0);
    box.control("POST", "/control/sign-out");
    expectExit(vark.run({"whoami"}), 3);

    std::vector<fs::path> holders;
    for (const fs::path& folder : {vark.home(), box.root()}) {
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
            if (!entry.is_regular_file()) continue;
            if (readWholeFile(entry.path()).find(box.token()) != std::string::npos)
                holders.push_back(entry.path());
        }
    }
    EXPECT_THAT(holders, testing::UnorderedElementsAre(box.tokenFile(), vark.find("connection.json"),
                                                       vark.find("secrets.json")));
    for (const char* name : {"connection.json", "secrets.json"})
        EXPECT_EQ(fs::status(*vark.find(name)).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    for (const LoggedRequest& request : box.requests()) {
        bool isApplication = request.listener == "app" && request.target.starts_with("/api/");
        EXPECT_EQ(request.hadToken, isApplication) << request.listener << " " << request.target;
    }
}

class NotConnected : public testing::Test {
  protected:
    RealVark vark;
};

TEST_F(NotConnected, SendingSaysHowToConnect) {
    Finished sent = vark.run({"send", vark.write("notes.txt", "words").string()});
    EXPECT_EQ(sent.exit, exitCode(3)) << sent.errors;
    EXPECT_THAT(sent.errors, HasSubstr("vark connect"));
    EXPECT_EQ(sent.output, "");
}

}  // namespace
}  // namespace vark::test
