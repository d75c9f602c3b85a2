#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/BuildTree.h"
#include "Tests/Support/KeyringSession.h"
#include "VarkCore/Services/SecretStore.h"

namespace vark::test {
namespace {

using testing::HasSubstr;

const std::string attributes = "service dev.vark.mac account device-token";

std::string unreadable(std::int32_t status) {
    return "unreadable " + std::to_string(status);
}

/// What an operation on the keychain tells in the session, or in one that `environment` changes.
std::string keychain(const KeyringSession& session, const std::string& operation,
                     const std::string& environment = "") {
    return session.run("env " + environment + " " +
                       (buildTree() / "Tests/VarkPlatform/KeychainProbe").string() + " " + operation);
}

TEST(SecretService, KeepsOneTokenWhereOtherToolsFindIt) {
    const KeyringSession session;
    EXPECT_EQ(keychain(session, "open"), "0");
    EXPECT_EQ(keychain(session, "write t0k-\xC3\xA9"), "0");
    EXPECT_THAT(session.run("secret-tool search " + attributes),
                HasSubstr("label = Vark device token\nsecret = t0k-\xC3\xA9\n"));
    EXPECT_EQ(keychain(session, "remove"), "0");
    EXPECT_EQ(keychain(session, "read"), "missing");

    session.run("printf one | secret-tool store --label='Of my own' " + attributes);
    EXPECT_EQ(keychain(session, "write two"), "0");
    const std::string items = session.run("secret-tool search --all " + attributes);
    EXPECT_THAT(items, HasSubstr("label = Of my own\nsecret = two\n"));
    EXPECT_EQ(items.find("label ="), items.rfind("label ="));
    session.run(R"(printf 't\377k' | secret-tool store --label=x )" + attributes);
    EXPECT_EQ(keychain(session, "read"), unreadable(SecretStatus::notText));
}

TEST(SecretService, ALockedKeyringWouldNotSayAndLosesNothing) {
    const KeyringSession session;
    EXPECT_EQ(keychain(session, "write t0k"), "0");
    session.lock();
    EXPECT_EQ(keychain(session, "read"), unreadable(SecretStatus::locked));
    EXPECT_EQ(keychain(session, "read dev.vark.other"), unreadable(SecretStatus::locked));
    for (const char* operation : {"write new", "add new"})
        EXPECT_EQ(keychain(session, operation), std::to_string(SecretStatus::locked));
    // Nobody is there to be asked.
    EXPECT_EQ(keychain(session, "open"), std::to_string(SecretStatus::refused));
}

TEST(SecretService, OneThatIsNotThereOrShowsNothingOrDoesNotAnswerWouldNotSay) {
    const KeyringSession none("no service");
    const std::string absent = unreadable(SecretStatus::absent);
    EXPECT_EQ(keychain(none, "read"), absent);
    EXPECT_EQ(keychain(none, "read", "-u DBUS_SESSION_BUS_ADDRESS -u XDG_RUNTIME_DIR"), absent);

    const KeyringSession empty("none");
    EXPECT_EQ(keychain(empty, "read"), unreadable(SecretStatus::noKeyring));
    EXPECT_EQ(keychain(empty, "add t0k"), std::to_string(SecretStatus::noKeyring));

    const KeyringSession hung;
    hung.stop();
    EXPECT_EQ(keychain(hung, "read", "PATIENCE_MS=50"), unreadable(SecretStatus::noAnswer));
}

}  // namespace
}  // namespace vark::test
