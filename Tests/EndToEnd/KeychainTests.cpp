#include "Tests/EndToEnd/EndToEndTest.h"
#include "Tests/Support/KeyringSession.h"

namespace vark::test {
namespace {

/// A person with a desktop session, in which they connect.
class KeychainOfAPerson : public EndToEndTest {
  protected:
    void SetUp() override {}
    void connectIn(const KeyringSession& session) {
        vark.moveTo({.environment = {{"DBUS_SESSION_BUS_ADDRESS", session.address()},
                                     {"VARK_SECRET_STORE", "keychain"}}});
        vark.connect(box);
    }
    static std::string lookUp(const KeyringSession& session) {
        return session.run("secret-tool lookup service " VARK_IDENTIFIER " account device-token || true");
    }
};

TEST_F(KeychainOfAPerson, HoldsTheTokenAndGivesItBackWhenItIsLost) {
    const KeyringSession session;
    connectIn(session);
    EXPECT_EQ(lookUp(session), box.token());
    EXPECT_FALSE(vark.find("secrets.json"));
    session.run("secret-tool clear service " VARK_IDENTIFIER " account device-token");
    expectExit(vark.run({"whoami"}), 0);
    EXPECT_EQ(lookUp(session), box.token());
    expectExit(vark.run({"disconnect"}), 0);
    EXPECT_EQ(lookUp(session), "");
}

TEST_F(KeychainOfAPerson, LockedIsNoSignOut) {
    const KeyringSession session;
    connectIn(session);
    session.lock();
    const Finished locked = vark.run({"send", vark.write("notes.txt", "words")});
    expectExit(locked, 1);
    EXPECT_THAT(locked.errors, testing::HasSubstr("The keychain is locked."));
    EXPECT_TRUE(vark.find("connection.json"));
}

}  // namespace
}  // namespace vark::test
