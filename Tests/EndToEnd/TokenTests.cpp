#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

namespace fs = std::filesystem;

class Token : public EndToEndTest {
  protected:
    SampleFile take = file("Take.mov", 20 * chunkSize);
};

TEST_F(Token, GoodAgainDoesNotLiftAPersonsPause) {
    // Leaves a queue behind that the vark paused because it does not know the token.
    box.control("POST", "/control/sign-out");
    Process sending = startSend(take);
    ASSERT_TRUE(vark.untilDiary("the queue is paused while that is checked", sending));
    sending.signal(SIGINT);
    expectExit(sending.finish(), 130);

    expectExit(vark.run({"pause"}), 0);
    box.control("POST", "/control/sign-in");
    Process waiting = vark.start({"send"});
    ASSERT_TRUE(waiting.untilWritten("aused"));
    EXPECT_TRUE(box.files().empty());
    expectExit(vark.run({"resume"}), 0);
    expectExit(waiting.finish(), 0);
    expectHeld(take);
}

TEST_F(Token, TakenAwayWhileSendingEndsTheRunAndThatOfAnotherVarkIsNotItsOwn) {
    RealBox other;
    Process sending = sendSlowly(take, "2MB");
    expectExit(vark.run({"disconnect"}), 0);
    expectExit(sending.finish(), 3);

    vark.connect(box);
    Process resumed = vark.start({"send", "--rate", "2MB"});
    ASSERT_TRUE(vark.untilDiary("Resuming", resumed));
    vark.connect(other);
    expectExit(resumed.finish(), 3);
    for (const LoggedRequest& request : box.requests())
        EXPECT_FALSE(request.hadToken && request.status == 401)
            << "a token that is not its own: " << request.target;

    vark.connect(box);
    expectExit(vark.run({"send"}), 0);
    expectHeld(take);
}

TEST_F(Token, IsWrittenNowhereButInItsOwnFiles) {
    Process sending = sendSlowly(take, "4MB");
    const fs::path process = fs::path("/proc") / std::to_string(sending.pid());
    for (const char* shown : {"cmdline", "environ"})
        EXPECT_FALSE(readWholeFile(process / shown).contains(box.token())) << shown;
    expectExit(sending.finish(), 0);
    box.control("POST", "/control/sign-out");
    expectExit(vark.run({"whoami"}), 3);

    std::vector<fs::path> holders;
    for (const fs::path& folder : {vark.home(), box.root()}) {
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
            if (entry.is_regular_file() && readWholeFile(entry.path()).contains(box.token()))
                holders.push_back(entry.path());
        }
    }
    const fs::path record = vark.find("connection.json").value();
    const fs::path secrets = vark.find("secrets.json").value();
    EXPECT_THAT(holders, testing::UnorderedElementsAre(box.tokenFile(), record, secrets));
    for (const fs::path& file : {record, secrets})
        EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    for (const LoggedRequest& request : box.requests()) {
        const bool isApplication = request.listener == "app" && request.target.starts_with("/api/");
        EXPECT_EQ(request.hadToken, isApplication) << request.listener << " " << request.target;
    }
}

}  // namespace
}  // namespace vark::test
