#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/FakeSystem.h"
#include "Tests/Support/KeyringSession.h"
#include "Tests/VarkPlatform/ChangedVariables.h"
#include "VarkCore/Connection/Keychain.h"
#include "VarkPlatform/Linux/SecretServiceStore.h"

namespace vark {
namespace {

using test::KeyringSession;
using testing::HasSubstr;
using testing::Not;
using Found = Keychain::TokenRead::Found;
using Missing = Keychain::TokenRead::Missing;
using Unreadable = Keychain::TokenRead::Unreadable;

const std::string attributes = "service dev.vark.mac account device-token";

/// A keychain on a real keyring daemon. Its patience is longer than any machine is slow.
struct World {
    explicit World(KeyringSession::Keyring keyring) : session(keyring) {}

    Keychain::TokenRead read() { return keychain.readToken(); }
    std::int32_t statusOfWriting(std::string_view token) {
        try {
            keychain.write(token);
            return SecretStatus::done;
        } catch (const Keychain::Failure& failure) {
            return failure.status();
        }
    }

    KeyringSession session;
    test::ChangedVariables variables{{{"DBUS_SESSION_BUS_ADDRESS", session.address()}}};
    SecretServiceStore store{std::chrono::minutes(1)};
    FakeBundle bundle;
    Keychain keychain{store, AppIdentity(bundle)};
};

TEST(SecretService, KeepsATokenWhereOtherToolsFindIt) {
    World world(KeyringSession::Keyring::unlocked);
    EXPECT_EQ(world.store.open(), SecretStatus::done);
    EXPECT_EQ(world.read(), Keychain::TokenRead(Missing{}));
    world.keychain.remove();
    world.keychain.write("t0k-\xC3\xA9");
    EXPECT_EQ(world.read(), Keychain::TokenRead(Found{"t0k-\xC3\xA9"}));
    EXPECT_EQ(world.session.run("secret-tool lookup " + attributes), "t0k-\xC3\xA9");
    EXPECT_THAT(world.session.run("secret-tool search " + attributes),
                HasSubstr("label = Vark device token\n"));
    world.keychain.remove();
    EXPECT_EQ(world.read(), Keychain::TokenRead(Missing{}));
}

TEST(SecretService, AnUpdateKeepsTheOneItemAndItsLabel) {
    World world(KeyringSession::Keyring::unlocked);
    world.session.run("printf one | secret-tool store --label='Of my own' " + attributes);
    EXPECT_EQ(world.read(), Keychain::TokenRead(Found{"one"}));
    world.keychain.write("two");
    world.keychain.write("three");
    const std::string items = world.session.run("secret-tool search --all " + attributes);
    EXPECT_THAT(items, HasSubstr("label = Of my own\nsecret = three\n"));
    EXPECT_EQ(items.find("label ="), items.rfind("label ="));
}

TEST(SecretService, WhatIsNoTextIsNotMissing) {
    World world(KeyringSession::Keyring::unlocked);
    world.session.run(R"(printf 't\377k' | secret-tool store --label=x )" + attributes);
    EXPECT_EQ(world.read(), Keychain::TokenRead(Unreadable{SecretStatus::notText}));
}

TEST(SecretService, ALockedKeyringWouldNotSayAndLosesNothing) {
    World world(KeyringSession::Keyring::unlocked);
    world.keychain.write("t0k");
    world.session.lock();
    EXPECT_EQ(world.read(), Keychain::TokenRead(Unreadable{SecretStatus::locked}));
    EXPECT_EQ(world.keychain.readToken("dev.vark.other"),
              Keychain::TokenRead(Unreadable{SecretStatus::locked}));
    EXPECT_EQ(world.statusOfWriting("new"), SecretStatus::locked);
    EXPECT_EQ(world.store.add({"a", "b"}, "c", "d"), SecretStatus::locked);
    // Nobody is there to be asked.
    EXPECT_EQ(world.store.open(), SecretStatus::refused);
    EXPECT_EQ(world.read(), Keychain::TokenRead(Unreadable{SecretStatus::locked}));
}

TEST(SecretService, WithoutAKeyringNothingIsStoredAndNothingCanBe) {
    World world(KeyringSession::Keyring::none);
    EXPECT_EQ(world.read(), Keychain::TokenRead(Missing{}));
    EXPECT_EQ(world.statusOfWriting("t0k"), SecretStatus::absent);
    EXPECT_EQ(world.store.open(), SecretStatus::refused);
}

TEST(SecretService, OneThatIsNotThereOrDoesNotAnswerWouldNotSay) {
    World world(KeyringSession::Keyring::noService);
    EXPECT_EQ(world.read(), Keychain::TokenRead(Unreadable{SecretStatus::absent}));
    EXPECT_EQ(world.store.open(), SecretStatus::absent);
    {
        const test::ChangedVariables noBus(
            {{"DBUS_SESSION_BUS_ADDRESS", std::string("unix:path=/no/such/bus")}});
        EXPECT_EQ(world.read(), Keychain::TokenRead(Unreadable{SecretStatus::absent}));
    }
    {
        const test::ChangedVariables noSession({{"DBUS_SESSION_BUS_ADDRESS", std::nullopt},
                                                {"XDG_RUNTIME_DIR", std::nullopt},
                                                {"DISPLAY", std::nullopt}});
        EXPECT_EQ(world.statusOfWriting("t0k"), SecretStatus::absent);
    }
    KeyringSession hung;
    hung.stop();
    const test::ChangedVariables there({{"DBUS_SESSION_BUS_ADDRESS", hung.address()}});
    SecretServiceStore impatient{std::chrono::milliseconds(50)};
    EXPECT_EQ(impatient.find({"a", "b"}).status, SecretStatus::noAnswer);
}

TEST(SecretService, CarriesTheTokenOfAnEarlierVersionOver) {
    World world(KeyringSession::Keyring::unlocked);
    const std::string earlier = "service dev.vark.transfer account device-token";
    world.session.run("printf old | secret-tool store --label='Vark Transfer' " + earlier);
    EXPECT_TRUE(world.keychain.migrateFromLegacy());
    EXPECT_EQ(world.read(), Keychain::TokenRead(Found{"old"}));
    EXPECT_EQ(world.session.run("secret-tool lookup " + earlier + " || true"), "");
    EXPECT_FALSE(world.keychain.migrateFromLegacy());

    world.session.run("printf older | secret-tool store --label='Vark Transfer' " + earlier);
    world.session.lock();
    EXPECT_FALSE(world.keychain.migrateFromLegacy());
}

TEST(SecretService, ASessionThatEndsTakesNothingWithIt) {
    World world(KeyringSession::Keyring::unlocked);
    world.keychain.write("t0k");
    {
        const KeyringSession gone;
        const test::ChangedVariables there({{"DBUS_SESSION_BUS_ADDRESS", gone.address()}});
        world.read();
    }
    EXPECT_EQ(world.read(), Keychain::TokenRead(Found{"t0k"}));
}

}  // namespace
}  // namespace vark
