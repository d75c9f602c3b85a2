#include "Tests/EndToEnd/EndToEndTest.h"
#include "Tests/Support/KeyringSession.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
using testing::Not;
namespace fs = std::filesystem;

const std::string attributes = "service " VARK_IDENTIFIER " account device-token";

/// A person with a desktop session, who has not connected yet.
class KeychainOfAPerson : public testing::Test {
  protected:
    void enter(const KeyringSession& session) {
        vark.moveTo({.environment = {{"DBUS_SESSION_BUS_ADDRESS", session.address()},
                                     {"VARK_SECRET_STORE", "keychain"}}});
    }
    Finished connect(std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"connect", box.url(), "--token-file", box.tokenFile().string(),
                                         "--ca-file", box.authority().string()});
        return vark.run(std::move(options));
    }
    void expectExit(const Finished& run, int code) { EXPECT_EQ(run.exit, exitCode(code)) << run.errors; }

    RealBox box;
    RealVark vark;
};

TEST_F(KeychainOfAPerson, HoldsTheTokenAndGivesItBackWhenItIsLost) {
    KeyringSession session;
    enter(session);
    Finished connected = connect();
    expectExit(connected, 0);
    EXPECT_THAT(connected.errors, HasSubstr("The token is in the keychain."));
    EXPECT_EQ(session.run("secret-tool lookup " + attributes), box.token());
    EXPECT_FALSE(vark.find("secrets.json"));
    expectExit(vark.run({"whoami"}), 0);

    session.run("secret-tool clear " + attributes);
    box.control("POST", "/control/sign-out");
    expectExit(vark.run({"whoami"}), 3);
    EXPECT_EQ(session.run("secret-tool lookup " + attributes + " || true"), "");
    box.control("POST", "/control/sign-in");
    expectExit(vark.run({"whoami"}), 0);
    EXPECT_EQ(session.run("secret-tool lookup " + attributes), box.token());

    expectExit(vark.run({"disconnect"}), 0);
    EXPECT_EQ(session.run("secret-tool lookup " + attributes + " || true"), "");
    EXPECT_FALSE(vark.find("connection.json"));
}

TEST_F(KeychainOfAPerson, LockedIsNoSignOut) {
    KeyringSession session;
    enter(session);
    expectExit(connect(), 0);
    const std::string record = readWholeFile(*vark.find("connection.json"));
    session.lock();
    Finished locked = vark.run({"send", vark.write("notes.txt", "words").string()});
    expectExit(locked, 1);
    EXPECT_THAT(locked.errors, HasSubstr("The keychain is locked."));
    EXPECT_EQ(readWholeFile(*vark.find("connection.json")), record);
    EXPECT_TRUE(box.files().empty());

    // Nobody is there to open it, so nobody is asked to sign in either.
    Finished again = connect();
    expectExit(again, 3);
    EXPECT_THAT(again.errors, HasSubstr("--secret-store file"));
    EXPECT_EQ(readWholeFile(*vark.find("connection.json")), record);
}

TEST_F(KeychainOfAPerson, WhereThereIsNoneAFileIsNamedAndNeverTakenSilently) {
    const KeyringSession session(KeyringSession::Keyring::noService);
    enter(session);
    Finished refused = connect();
    expectExit(refused, 3);
    EXPECT_THAT(refused.errors, HasSubstr("no Secret Service answers. To keep the token in a file "
                                          "that only you can read, add: --secret-store file"));
    EXPECT_FALSE(vark.find("connection.json"));
    EXPECT_FALSE(vark.find("secrets.json"));

    Finished connected = connect({"--secret-store", "file"});
    expectExit(connected, 0);
    const fs::path file = *vark.find("secrets.json");
    EXPECT_THAT(connected.errors, HasSubstr("The token is in the file " + file.string()));
    EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    expectExit(vark.run({"whoami"}), 0);
    for (const Finished& run : {refused, connected})
        EXPECT_THAT(run.output + run.errors, Not(HasSubstr(box.token())));
}

}  // namespace
}  // namespace vark::test
