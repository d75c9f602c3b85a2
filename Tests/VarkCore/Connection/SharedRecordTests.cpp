#include <gtest/gtest.h>

#include "Tests/Support/Fakes/FakeSystem.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Connection/AppIdentity.h"
#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Connection/SharedLevel.h"
#include "VarkCore/Connection/SharedStore.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

SharedConnection acme(std::string rootPath = "") {
    return {.server = "https://vark.example",
            .token = "t0k",
            .clientName = "Acme",
            .rootPath = std::move(rootPath),
            .rootID = 7,
            .level = 4,
            .folders = std::nullopt};
}

TEST(SharedConnection, IsNamedByItsRootAndShowsWhatWasChosen) {
    EXPECT_EQ(acme().displayName(), "Acme");
    EXPECT_EQ(acme("/Jobs/2024").displayName(), "Acme (2024)");
    SharedConnection connection = acme();
    connection.folders = std::vector<std::string>{};
    EXPECT_EQ(connection.shownFolders(), std::nullopt) << "none chosen shows everything";
    connection.folders = {"b", "a", "b"};
    EXPECT_EQ(connection.shownFolders(), (std::set<std::string>{"a", "b"}));
}

TEST(SharedStore, WritesARecordThatOnlyThePersonMayReadAndReadsItBack) {
    const TemporaryFolder folder;
    const std::filesystem::path shared = folder / "deep/shared";
    SharedConnection connection = acme("Jobs/M\u00FCll \"x\"");
    connection.folders = std::vector<std::string>{"a"};
    ASSERT_TRUE(SharedStore::write(connection, shared));
    EXPECT_EQ(SharedStore::read(shared), connection);
    EXPECT_EQ(status(shared / "connection.json").permissions(), std::filesystem::perms(0600));
    SharedStore::clear(shared);
    EXPECT_EQ(SharedStore::read(shared), std::nullopt);

    const std::string whole = acme().toJSON();
    folder.file("connection.json", whole.substr(0, whole.size() - 1));
    EXPECT_EQ(SharedStore::read(folder.path()), std::nullopt);
    EXPECT_FALSE(SharedStore::write(acme(), std::nullopt));
    EXPECT_FALSE(SharedStore::write(acme(), folder.file("file") / "below"));
}

TEST(SharedLevel, IsBelievedForTenMinutesAndNeverFromTheFuture) {
    const TemporaryFolder folder;
    const Date learned{762'000'000.5};
    const SharedLevel level{5, true, learned};
    EXPECT_FALSE(level.isFresh(learned + 600));
    EXPECT_FALSE(level.isFresh(learned - 1));
    ASSERT_TRUE(SharedLevelStore::write(level, folder.path()));
    EXPECT_EQ(readWholeFile(folder / "level.json"), R"({"level":5,"jobNumbers":true,"at":762000000.5})");
    EXPECT_EQ(SharedLevelStore::read(folder.path()), level);
    folder.file("level.json", R"({"level":4,"at":1.5})");
    EXPECT_EQ(SharedLevelStore::read(folder.path()), std::nullopt);
}

TEST(Locations, KeepTestBuildsApartAndCarryTheFolderOfAnOlderVersionOverOnce) {
    const TemporaryFolder folder;
    const FakeUserFolders folders(folder.path());
    FakeBundle bundle;
    bundle.id = "dev.vark.mac.beta";
    folder.file("Support/Vark Transfer/queue.json", "old");
    EXPECT_EQ(Locations(bundle, folders).queue(), folder / "Support/Vark (dev.vark.mac.beta)/queue.json");
    EXPECT_TRUE(exists(folder / "Support/Vark Transfer"));

    bundle.id = "dev.vark.mac";
    const Locations locations(bundle, folders);
    EXPECT_EQ(locations.queue(), folder / "Support/Vark/queue.json");
    EXPECT_EQ(readWholeFile(locations.queue()), "old");
    folder.file("Support/Vark Transfer/queue.json", "older");
    EXPECT_EQ(readWholeFile(locations.queue()), "old");
}

}  // namespace
}  // namespace vark
