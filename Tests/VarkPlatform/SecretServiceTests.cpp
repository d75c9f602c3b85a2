#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/KeyringSession.h"
#include "VarkCore/Services/SecretStore.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
using Keyring = KeyringSession::Keyring;

const std::string attributes = "service dev.vark.mac account device-token";
const std::string earlier = "service dev.vark.transfer account device-token";

std::string unreadable(std::int32_t status) {
    return fmt::format("unreadable {}", status);
}
std::string failure(std::int32_t status) {
    return std::to_string(status);
}

/// What an operation on the keychain tells in the session, or in one that `environment` changes.
std::string keychain(KeyringSession& session, const std::string& operation,
                     const std::string& environment = "") {
    return session.run(fmt::format("env {} {} {}", environment, VARK_KEYCHAIN_PROBE, operation));
}

TEST(SecretService, KeepsATokenWhereOtherToolsFindIt) {
    KeyringSession session;
    EXPECT_EQ(keychain(session, "open"), "0");
    EXPECT_EQ(keychain(session, "read"), "missing");
    EXPECT_EQ(keychain(session, "remove"), "0");
    EXPECT_EQ(keychain(session, "write t0k-\xC3\xA9"), "0");
    EXPECT_EQ(keychain(session, "read"), "found t0k-\xC3\xA9");
    EXPECT_EQ(session.run("secret-tool lookup " + attributes), "t0k-\xC3\xA9");
    EXPECT_THAT(session.run("secret-tool search " + attributes), HasSubstr("label = Vark device token\n"));
    EXPECT_EQ(keychain(session, "remove"), "0");
    EXPECT_EQ(keychain(session, "read"), "missing");
}

TEST(SecretService, AnUpdateKeepsTheOneItemAndItsLabel) {
    KeyringSession session;
    session.run("printf one | secret-tool store --label='Of my own' " + attributes);
    EXPECT_EQ(keychain(session, "read"), "found one");
    EXPECT_EQ(keychain(session, "write two"), "0");
    const std::string items = session.run("secret-tool search --all " + attributes);
    EXPECT_THAT(items, HasSubstr("label = Of my own\nsecret = two\n"));
    EXPECT_EQ(items.find("label ="), items.rfind("label ="));
}

TEST(SecretService, WhatIsNoTextIsNotMissing) {
    KeyringSession session;
    session.run(R"(printf 't\377k' | secret-tool store --label=x )" + attributes);
    EXPECT_EQ(keychain(session, "read"), unreadable(SecretStatus::notText));
}

TEST(SecretService, ALockedKeyringWouldNotSayAndLosesNothing) {
    KeyringSession session;
    EXPECT_EQ(keychain(session, "write t0k"), "0");
    session.lock();
    EXPECT_EQ(keychain(session, "read"), unreadable(SecretStatus::locked));
    EXPECT_EQ(keychain(session, "read dev.vark.other"), unreadable(SecretStatus::locked));
    EXPECT_EQ(keychain(session, "write new"), failure(SecretStatus::locked));
    EXPECT_EQ(keychain(session, "add new"), failure(SecretStatus::locked));
    // Nobody is there to be asked.
    EXPECT_EQ(keychain(session, "open"), failure(SecretStatus::refused));
    EXPECT_EQ(keychain(session, "read"), unreadable(SecretStatus::locked));
}

TEST(SecretService, AServiceThatShowsNoKeyringWouldNotSay) {
    KeyringSession session(Keyring::none);
    EXPECT_EQ(keychain(session, "read"), unreadable(SecretStatus::noKeyring));
    EXPECT_EQ(keychain(session, "write t0k"), failure(SecretStatus::noKeyring));
    EXPECT_EQ(keychain(session, "add t0k"), failure(SecretStatus::noKeyring));
    EXPECT_EQ(keychain(session, "open"), failure(SecretStatus::refused));
}

TEST(SecretService, OneThatIsNotThereOrDoesNotAnswerWouldNotSay) {
    KeyringSession session(Keyring::noService);
    const std::string absent = unreadable(SecretStatus::absent);
    EXPECT_EQ(keychain(session, "read"), absent);
    EXPECT_EQ(keychain(session, "open"), failure(SecretStatus::absent));
    EXPECT_EQ(keychain(session, "read", "DBUS_SESSION_BUS_ADDRESS=unix:path=/no/such/bus"), absent);
    EXPECT_EQ(keychain(session, "read", "-u DBUS_SESSION_BUS_ADDRESS -u XDG_RUNTIME_DIR"), absent);

    KeyringSession hung;
    hung.stop();
    EXPECT_EQ(keychain(hung, "read", "PATIENCE_MS=50"), unreadable(SecretStatus::noAnswer));
}

TEST(SecretService, CarriesTheTokenOfAnEarlierVersionOver) {
    KeyringSession session;
    const std::string storeEarlier = "printf old | secret-tool store --label='Vark Transfer' " + earlier;
    session.run(storeEarlier);
    EXPECT_EQ(keychain(session, "migrate"), "moved");
    EXPECT_EQ(keychain(session, "read"), "found old");
    EXPECT_EQ(session.run("secret-tool lookup " + earlier + " || true"), "");
    EXPECT_EQ(keychain(session, "migrate"), "left");

    session.run(storeEarlier);
    EXPECT_EQ(keychain(session, "remove"), "0");
    session.lock();
    EXPECT_EQ(keychain(session, "migrate"), "left");
}

}  // namespace
}  // namespace vark::test
