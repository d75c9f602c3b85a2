#include "Tests/EndToEnd/EndToEndTest.h"
#include "Tests/Support/KeyringSession.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

/// A person with a desktop session, who has not connected yet.
class KeychainOfAPerson : public EndToEndTest {
  protected:
    void SetUp() override {}
    void enter(const KeyringSession& session) {
        vark.moveTo({.environment = {{"DBUS_SESSION_BUS_ADDRESS", session.address()},
                                     {"VARK_SECRET_STORE", "keychain"}}});
    }
    Finished connect(std::vector<std::string> options = {}) {
        options.insert(options.begin(),
                       {"connect", box.url(), "--token-file", box.tokenFile(), "--ca-file", box.authority()});
        return vark.run(std::move(options));
    }
    static std::string lookUp(const KeyringSession& session) {
        return session.run("secret-tool lookup service " VARK_IDENTIFIER " account device-token || true");
    }
};

TEST_F(KeychainOfAPerson, HoldsTheTokenAndGivesItBackWhenItIsLost) {
    const KeyringSession session;
    enter(session);
    const Finished connected = connect();
    expectExit(connected, 0);
    EXPECT_THAT(connected.errors, HasSubstr("The token is in the keychain."));
    EXPECT_EQ(lookUp(session), box.token());
    EXPECT_FALSE(vark.find("secrets.json"));

    session.run("secret-tool clear service " VARK_IDENTIFIER " account device-token");
    box.control("POST", "/control/sign-out");
    expectExit(vark.run({"whoami"}), 3);
    EXPECT_EQ(lookUp(session), "");
    box.control("POST", "/control/sign-in");
    expectExit(vark.run({"whoami"}), 0);
    EXPECT_EQ(lookUp(session), box.token());

    expectExit(vark.run({"disconnect"}), 0);
    EXPECT_EQ(lookUp(session), "");
    EXPECT_FALSE(vark.find("connection.json"));
}

TEST_F(KeychainOfAPerson, LockedIsNoSignOut) {
    const KeyringSession session;
    enter(session);
    expectExit(connect(), 0);
    const std::string record = readWholeFile(*vark.find("connection.json"));
    session.lock();
    const Finished locked = vark.run({"send", vark.write("notes.txt", "words")});
    expectExit(locked, 1);
    EXPECT_THAT(locked.errors, HasSubstr("The keychain is locked."));
    EXPECT_TRUE(box.files().empty());

    // Nobody is there to open it, so nobody is asked to sign in either.
    const Finished again = connect();
    expectExit(again, 3);
    EXPECT_THAT(again.errors, HasSubstr("--secret-store file"));
    EXPECT_EQ(readWholeFile(*vark.find("connection.json")), record);
}

}  // namespace
}  // namespace vark::test
