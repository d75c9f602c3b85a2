#include "Tests/EndToEnd/EndToEndTest.h"
#include "Tests/Support/KeyringSession.h"
#include "Tests/Support/Programs.h"

namespace vark::test {
namespace {

/// A person with a desktop session, in which they connect.
class KeychainOfAPerson : public EndToEndTest {
  protected:
    void SetUp() override {}
};

TEST_F(KeychainOfAPerson, LockedIsNoSignOut) {
    const KeyringSession session;
    vark.moveTo({.environment = {{"DBUS_SESSION_BUS_ADDRESS", session.address()},
                                 {"VARK_SECRET_STORE", "keychain"}}});
    vark.connect(box);
    const std::string attributes = " service " + Programs::get().bundleIdentifier() + " account device-token";
    EXPECT_EQ(session.run("secret-tool lookup" + attributes), box.token());
    EXPECT_FALSE(vark.find("secrets.json"));
    session.run("secret-tool clear" + attributes);
    expectExit(vark.run({"whoami"}), 0);
    EXPECT_EQ(session.run("secret-tool lookup" + attributes), box.token()) << "a lost one is put back";

    session.lock();
    const Finished locked = vark.run({"send", vark.write("notes.txt", "words")});
    expectExit(locked, 1);
    EXPECT_THAT(locked.errors, testing::HasSubstr("The keychain is locked."));
    EXPECT_TRUE(vark.find("connection.json"));
}

}  // namespace
}  // namespace vark::test
