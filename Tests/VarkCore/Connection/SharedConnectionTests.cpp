#include "VarkCore/Connection/SharedConnection.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Tests/Support/FakeSystem.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Connection/AppIdentity.h"
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

TEST(SharedConnection, NamesItselfByClientAndLastPieceOfItsRoot) {
    struct Case {
        const char* root;
        const char* name;
    };
    for (const Case& each : {Case{"", "Acme"}, Case{"Jobs", "Acme (Jobs)"}, Case{"/Jobs/2024", "Acme (2024)"},
                             Case{"/Jobs/2024/", "Acme ()"}}) {
        EXPECT_EQ(acme(each.root).displayName(), each.name);
    }
}

TEST(SharedConnection, DomainIdentifiersAreStableAndApartForEachBuild) {
    struct Case {
        const char* bundle;
        const char* root;
        const char* identifier;
    };
    for (const Case& each : {Case{"dev.vark.mac", "", "dev.vark.finder.vark"},
                             Case{"dev.vark.mac.beta", "", "dev.vark.mac.beta.finder.vark"},
                             Case{"dev.vark.mac", "foobar", "dev.vark.finder.bf9cf968"},
                             Case{"dev.vark.mac", "Jobs/2024", "dev.vark.finder.397d2332"}}) {
        EXPECT_EQ(acme(each.root).domainIdentifier(each.bundle), each.identifier);
    }
    EXPECT_EQ(stableHash(""), 0x811c9dc5U);
    EXPECT_EQ(stableHash("M\xC3\xBCll"), 0x9c5c0267U);
    FakeBundle bundle;
    bundle.id = std::nullopt;
    EXPECT_EQ(acme().domainIdentifier(AppIdentity(bundle)), "dev.vark.mac.unbundled.finder.vark");
}

TEST(SharedConnection, AnEmptyListOfFoldersShowsEverything) {
    SharedConnection connection = acme();
    EXPECT_EQ(connection.shownFolders(), std::nullopt);
    connection.folders = std::vector<std::string>{};
    EXPECT_EQ(connection.shownFolders(), std::nullopt);
    connection.folders = {"b", "a", "b"};
    EXPECT_EQ(connection.shownFolders(), (std::set<std::string>{"a", "b"}));
}

TEST(SharedStore, WritesARecordThatOnlyThePersonMayReadAndReadsItBack) {
    const TemporaryFolder folder;
    const std::filesystem::path shared = folder / "deep/shared";
    SharedConnection connection = acme("Jobs/M\xC3\xBCll \"x\"");
    for (const auto& folders :
         {std::optional<std::vector<std::string>>(), std::optional(std::vector<std::string>()),
          std::optional(std::vector<std::string>{"a"})}) {
        connection.folders = folders;
        ASSERT_TRUE(SharedStore::write(connection, shared));
        EXPECT_EQ(SharedStore::read(shared), connection);
    }
    struct stat values{};
    ASSERT_EQ(stat((shared / "connection.json").c_str(), &values), 0);
    EXPECT_EQ(values.st_mode & 07777, 0600U);

    SharedStore::clear(shared);
    SharedStore::clear(shared);
    EXPECT_EQ(SharedStore::read(shared), std::nullopt);
}

TEST(SharedStore, WhatCannotBeReadWholeIsNoConnection) {
    const TemporaryFolder folder;
    const std::string whole = acme().toJSON();
    for (const std::string& bytes :
         {std::string(), whole.substr(0, whole.size() - 1),
          std::string(R"({"server":"s","token":"t","clientName":"c"})"),
          std::string(R"({"server":"s","token":"t","clientName":"c","rootPath":"","rootID":1,"level":null})"),
          std::string(
              R"({"server":"s","token":"t","clientName":"c","rootPath":"","rootID":"1","level":4})")}) {
        folder.file("connection.json", bytes);
        EXPECT_EQ(SharedStore::read(folder.path()), std::nullopt) << bytes;
    }
    folder.file("connection.json", whole);
    EXPECT_EQ(SharedStore::read(folder.path()), acme());
}

TEST(SharedStore, SaysFalseWhenNothingCouldBeWritten) {
    const TemporaryFolder folder;
    EXPECT_FALSE(SharedStore::write(acme(), std::nullopt));
    EXPECT_FALSE(SharedStore::write(acme(), folder.file("file") / "below"));
    folder.file("taken/connection.json/inside");
    EXPECT_FALSE(SharedStore::write(acme(), folder / "taken"));
    EXPECT_EQ(SharedStore::read(std::nullopt), std::nullopt);
}

TEST(SharedStore, FolderIsThatOfTheBundlesGroup) {
    const FakeUserFolders folders("/base");
    FakeBundle bundle;
    EXPECT_EQ(SharedStore::folder(bundle, folders), std::nullopt);
    bundle.info["VARKAppGroup"] = "";
    EXPECT_EQ(SharedStore::folder(bundle, folders), std::nullopt);
    bundle.info["VARKAppGroup"] = "group.dev.vark";
    EXPECT_EQ(SharedStore::folder(bundle, folders), "/base/Groups/group.dev.vark");
    EXPECT_EQ(SharedStore::folder(std::string(), folders), std::nullopt);
    EXPECT_EQ(SharedStore::folder(std::nullopt, folders), std::nullopt);
}

}  // namespace
}  // namespace vark
