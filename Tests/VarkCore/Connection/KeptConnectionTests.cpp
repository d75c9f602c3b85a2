#include "VarkCore/Connection/KeptConnection.h"

#include <gtest/gtest.h>

#include "Tests/Support/Fakes/FakeSecretStore.h"
#include "Tests/Support/Fakes/FakeSystem.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Connection/SharedStore.h"

namespace vark {
namespace {

constexpr const char* here = "https://vark.example";
constexpr const char* elsewhere = "https://other.example";

/// Processes of one person, whose keychain is a map.
class KeptConnectionTest : public testing::Test {
  protected:
    KeptConnection process() {
        const std::shared_ptr<SecretStore> shared(&store, [](SecretStore*) {});
        return {folder.path(), locations, [shared](KeptConnection::Place) { return shared; }};
    }
    SharedConnection record(const std::string& token, const char* server = here) {
        SharedConnection connection;
        connection.server = server;
        connection.token = token;
        connection.tokenInFile = false;
        return connection;
    }
    void connect(const std::string& token, const char* server = here) {
        process().replace(record(token, server), std::nullopt);
    }
    std::string tokenInStore() {
        const auto found = store.secrets.find(name);
        return found == store.secrets.end() ? "" : found->second.bytes;
    }
    std::string tokenInRecord() {
        const std::optional<SharedConnection> connection = SharedStore::read(folder.path());
        return connection ? connection->token : "";
    }
    /// Happens once, when a call of this name is about to reach the store.
    void beforeNext(std::string_view call, std::function<void()> happens) {
        store.before = [this, call, happens = std::move(happens)](std::string_view now) {
            if (now != call) return;
            const auto once = happens;
            store.before = [](std::string_view) {};
            once();
        };
    }

    TemporaryFolder folder;
    FakeBundle bundle;
    FakeUserFolders folders{folder.path()};
    Locations locations{bundle, folders};
    test::FakeSecretStore store;
    const SecretName name{"dev.vark.mac", "device-token"};
};

TEST_F(KeptConnectionTest, WhoLooksWhileItChangesSeesWhatItEndsWith) {
    struct Case {
        const char* about;
        std::function<void()> meanwhile;
        std::optional<SharedConnection> seen;
    };
    const Case cases[] = {
        {"a new token", [this] { connect("new"); }, record("new")},
        {"another vark", [this] { connect("new", elsewhere); }, record("new", elsewhere)},
        {"disconnected", [this] { process().remove(); }, std::nullopt},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.about);
        connect("old");
        beforeNext("find", each.meanwhile);
        const KeptConnection::Look look = process().look();
        EXPECT_EQ(look.connection, each.seen);
        EXPECT_EQ(look.belongsTogether(), each.seen.has_value());
    }
}

TEST_F(KeptConnectionTest, NobodyElseWritesBetweenTokenAndRecord) {
    int writes = 0;
    store.before = [&](std::string_view call) {
        if (call == "find") return;
        ++writes;
        EXPECT_FALSE(FileLock::tryExclusive(SharedFiles::connectionLock(folder.path()))) << call;
    };
    connect("one");
    connect("two");
    process().putBack("three", [](const auto&) { return true; });
    connect("four");
    process().remove();
    EXPECT_EQ(writes, 6);
    // A reader who carries the token of an earlier version over is a writer too.
    ASSERT_TRUE(SharedStore::write(record("old"), folder.path()));
    store.secrets[{"dev.vark.transfer", "device-token"}] = {"", "old"};
    EXPECT_TRUE(process().look().belongsTogether());
    EXPECT_GT(writes, 6);
}

TEST_F(KeptConnectionTest, ALostTokenIsPutBackOnlyWhileItIsLost) {
    connect("old");
    const auto isLost = [](const KeptConnection::Look& now) { return now.token.isMissing(); };
    EXPECT_FALSE(process().putBack("proved", isLost));
    EXPECT_EQ(tokenInStore(), "old");
    store.secrets.clear();
    EXPECT_TRUE(process().putBack("proved", isLost));
    EXPECT_EQ(tokenInStore(), "proved");
}

TEST_F(KeptConnectionTest, WhereTheRecordCannotBeWrittenTheOldConnectionStands) {
    connect("old");
    const std::filesystem::path authority = SharedFiles::authority(folder.path());
    beforeNext("update", [&] { std::filesystem::create_directories(authority / "in the way"); });
    EXPECT_THROW(process().replace(record("new"), "PEM"), FileError);
    EXPECT_EQ(tokenInStore(), "old");
    EXPECT_EQ(tokenInRecord(), "old");
}

TEST_F(KeptConnectionTest, LeavingTakesTheTokenAlongOrChangesNothing) {
    struct Case {
        const char* about;
        std::function<void()> arrange;
        std::optional<std::int32_t> refused;
        std::optional<std::int32_t> stays;
        std::string tokenAfter;
    };
    const auto failing = [this](const char* call, std::int32_t status) {
        return [this, call, status] { store.failures[call] = status; };
    };
    // clang-format off
    const Case cases[] = {
        {"good", [] {}, {}, {}, ""},
        {"lost before", [this] { store.secrets.clear(); }, {}, {}, ""},
        {"of another vark", [this] { store.secrets[name].bytes = "other"; }, {}, {}, "other"},
        {"locked", failing("find", SecretStatus::locked), SecretStatus::locked, {}, "t"},
        {"given but not taken", failing("remove", SecretStatus::failed), SecretStatus::failed, {}, "t"},
        {"no keychain", failing("find", SecretStatus::absent), {}, SecretStatus::absent, "t"},
    };
    // clang-format on
    for (const Case& each : cases) {
        SCOPED_TRACE(each.about);
        store.failures.clear();
        connect("t");
        each.arrange();
        std::optional<std::int32_t> refused;
        std::optional<std::int32_t> stays;
        try {
            const KeptConnection::Removed removed = process().remove();
            EXPECT_EQ(removed.connection, record("t"));
            if (removed.tokenStays) stays = removed.tokenStays->status();
        } catch (const Keychain::Failure& failure) {
            refused = failure.status();
        }
        EXPECT_EQ(refused, each.refused);
        EXPECT_EQ(stays, each.stays);
        EXPECT_EQ(tokenInStore(), each.tokenAfter);
        EXPECT_EQ(tokenInRecord(), each.refused ? "t" : "");
    }
}

}  // namespace
}  // namespace vark
