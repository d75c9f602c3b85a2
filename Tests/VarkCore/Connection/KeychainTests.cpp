#include "VarkCore/Connection/Keychain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/Fakes/FakeSecretStore.h"
#include "Tests/Support/Fakes/FakeSystem.h"

namespace vark {
namespace {

using testing::ElementsAre;
using Secret = test::FakeSecretStore::Secret;
using Found = Keychain::TokenRead::Found;
using Missing = Keychain::TokenRead::Missing;
using Unreadable = Keychain::TokenRead::Unreadable;

class KeychainTest : public testing::Test {
  protected:
    Keychain keychain() { return {store, AppIdentity(bundle)}; }
    const SecretName current{"dev.vark.mac", "device-token"};
    const SecretName legacy{"dev.vark.transfer", "device-token"};
    FakeBundle bundle;
    test::FakeSecretStore store;
};

TEST_F(KeychainTest, TellsFoundMissingAndWouldNotSayApart) {
    struct Case {
        const char* bytes;
        std::int32_t status;
        Keychain::TokenRead read;
    };
    // clang-format off
    const Case cases[] = {
        {"t0k", SecretStatus::done, Found{"t0k"}},
        {nullptr, SecretStatus::done, Missing{}},
        {"t\xff", SecretStatus::done, Unreadable{-26275}},
        {"t0k", 17, Unreadable{17}},
    };
    // clang-format on
    for (const Case& each : cases) {
        store.secrets.clear();
        if (each.bytes != nullptr) store.secrets[current] = {"", each.bytes};
        store.failures["find"] = each.status;
        EXPECT_EQ(keychain().readToken(), each.read);
        EXPECT_EQ(keychain().read(), each.read.token());
    }
}

TEST_F(KeychainTest, WritingUpdatesInPlaceAndAddsOnlyWhatIsMissing) {
    keychain().write("one");
    EXPECT_EQ(store.secrets.at(current), (Secret{"Vark device token", "one"}));
    store.secrets.at(current).label = "renamed";
    keychain().write("two");
    EXPECT_EQ(store.secrets.at(current), (Secret{"renamed", "two"}));

    store.calls.clear();
    store.failures["update"] = SecretStatus::locked;
    EXPECT_THROW(keychain().write("three"), Keychain::Failure);
    EXPECT_THAT(store.calls, ElementsAre("update"));
    store.failures = {{"update", SecretStatus::notFound}, {"add", 17}};
    EXPECT_THROW(keychain().write("three"), Keychain::Failure);
    EXPECT_EQ(store.secrets.at(current).bytes, "two");
}

TEST_F(KeychainTest, CarriesTheTokenOfAnEarlierVersionOverOnceAndOnlyInTheShippingBuild) {
    store.secrets = {{legacy, {"", "old"}}};
    bundle.id = "dev.vark.mac.beta";
    EXPECT_FALSE(keychain().migrateFromLegacy());
    bundle.id = "dev.vark.mac";
    store.failures["add"] = SecretStatus::locked;
    EXPECT_FALSE(keychain().migrateFromLegacy());
    EXPECT_TRUE(store.secrets.contains(legacy));
    store.failures.clear();
    EXPECT_TRUE(keychain().migrateFromLegacy());
    EXPECT_FALSE(store.secrets.contains(legacy));
    store.secrets[legacy] = {"", "older"};
    EXPECT_FALSE(keychain().migrateFromLegacy());
    EXPECT_EQ(store.secrets.at(current).bytes, "old");
}

}  // namespace
}  // namespace vark
