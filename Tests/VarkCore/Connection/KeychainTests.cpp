#include "VarkCore/Connection/Keychain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/FakeSecretStore.h"
#include "Tests/Support/FakeSystem.h"

namespace vark {
namespace {

using testing::ElementsAre;
using Found = Keychain::TokenRead::Found;
using Missing = Keychain::TokenRead::Missing;
using Unreadable = Keychain::TokenRead::Unreadable;

class KeychainTest : public testing::Test {
  protected:
    Keychain keychain() { return {store, AppIdentity(bundle)}; }
    /// Of what a write fails with, or nothing.
    std::optional<std::pair<std::int32_t, std::string>> failureOfWriting(std::string_view token) {
        try {
            keychain().write(token);
            return std::nullopt;
        } catch (const Keychain::Failure& failure) {
            return std::pair(failure.status(), failure.errorDescription());
        }
    }

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
    for (const Case& each :
         {Case{"t0k", SecretStatus::done, Found{"t0k"}}, Case{nullptr, SecretStatus::done, Missing{}},
          Case{"t\xff", SecretStatus::done, Unreadable{-26275}}, Case{"t0k", 17, Unreadable{17}}}) {
        store.secrets.clear();
        if (each.bytes != nullptr) store.secrets[current] = {"", each.bytes};
        store.failures["find"] = each.status;
        EXPECT_EQ(keychain().readToken(), each.read);
        EXPECT_EQ(keychain().read(), each.read.token());
    }
}

TEST_F(KeychainTest, AnItemGoesByServiceAndAccount) {
    bundle.id = std::nullopt;
    keychain().write("mine");
    keychain().write("other", "svc", "acc");
    EXPECT_EQ(store.secrets.at({"dev.vark.mac.unbundled", "device-token"}).bytes, "mine");
    EXPECT_EQ(keychain().read("svc", "acc"), "other");
    EXPECT_EQ(keychain().readToken("svc"), Keychain::TokenRead(Missing{}));
    keychain().remove("svc", "acc");
    keychain().remove("svc", "acc");
    EXPECT_EQ(keychain().read(), "mine");
}

TEST_F(KeychainTest, WritingUpdatesInPlaceAndAddsOnlyWhatIsMissing) {
    EXPECT_EQ(failureOfWriting("one"), std::nullopt);
    EXPECT_EQ(store.secrets.at(current), (test::FakeSecretStore::Secret{"Vark device token", "one"}));
    store.secrets.at(current).label = "renamed";
    store.calls.clear();
    EXPECT_EQ(failureOfWriting("two"), std::nullopt);
    EXPECT_THAT(store.calls, ElementsAre("update"));
    EXPECT_EQ(store.secrets.at(current), (test::FakeSecretStore::Secret{"renamed", "two"}));

    store.calls.clear();
    store.failures["update"] = SecretStatus::locked;
    EXPECT_EQ(failureOfWriting("three"),
              std::pair(SecretStatus::locked, std::string("The keychain is locked.")));
    EXPECT_THAT(store.calls, ElementsAre("update"));
    store.failures = {{"update", SecretStatus::notFound}, {"add", 17}};
    EXPECT_EQ(failureOfWriting("three"), std::pair(17, std::string("Keychain error 17")));
    EXPECT_EQ(store.secrets.at(current).bytes, "two");
}

TEST_F(KeychainTest, CarriesTheTokenOfAnEarlierVersionOver) {
    using Failures = std::map<std::string, std::int32_t, std::less<>>;
    struct Case {
        const char* about;
        const char* build;
        const char* newToken;
        const char* oldToken;
        Failures failures;
        bool moved;
    };
    for (const Case& each :
         {Case{"moved", "dev.vark.mac", nullptr, "old", {}, true},
          Case{"another build", "dev.vark.mac.beta", nullptr, "old", {}, false},
          Case{"there already", "dev.vark.mac", "new", "old", {}, false},
          Case{"nothing old", "dev.vark.mac", nullptr, nullptr, {}, false},
          Case{"would not say", "dev.vark.mac", nullptr, "old", {{"find", SecretStatus::locked}}, false},
          Case{"no write", "dev.vark.mac", nullptr, "old", {{"add", SecretStatus::locked}}, false}}) {
        SCOPED_TRACE(each.about);
        bundle.id = each.build;
        store.failures = each.failures;
        store.secrets.clear();
        if (each.newToken != nullptr) store.secrets[current] = {"", each.newToken};
        if (each.oldToken != nullptr) store.secrets[legacy] = {"", each.oldToken};
        const auto before = store.secrets;
        EXPECT_EQ(keychain().migrateFromLegacy(), each.moved);
        if (each.moved) {
            EXPECT_THAT(
                store.secrets,
                ElementsAre(std::pair(current, test::FakeSecretStore::Secret{"Vark device token", "old"})));
        } else {
            EXPECT_EQ(store.secrets, before);
        }
    }
}

}  // namespace
}  // namespace vark
