#include "VarkCore/Connection/SharedLevel.h"

#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

const Date learned{762'000'000.5};

TEST(SharedLevel, IsBelievedForTenMinutesAndNeverFromTheFuture) {
    for (const auto& [age, isFresh] : std::vector<std::pair<double, bool>>{
             {0, true}, {599.9, true}, {600, false}, {86'400, false}, {-1, false}}) {
        EXPECT_EQ((SharedLevel{4, true, learned}.isFresh(learned + age)), isFresh) << age;
    }
}

TEST(SharedLevel, IsWrittenForThePersonAloneAndReadBack) {
    const TemporaryFolder folder;
    const std::filesystem::path shared = folder / "deep/shared";
    const SharedLevel level{5, true, learned};
    ASSERT_TRUE(SharedLevelStore::write(level, shared));
    EXPECT_EQ(readWholeFile(shared / "level.json"), R"({"level":5,"jobNumbers":true,"at":762000000.5})");
    EXPECT_EQ(std::filesystem::status(shared / "level.json").permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(SharedLevelStore::read(shared), level);
    SharedLevelStore::clear(shared);
    EXPECT_EQ(SharedLevelStore::read(shared), std::nullopt);
}

TEST(SharedLevel, WhatIsNotWholeIsNoLevel) {
    const TemporaryFolder folder;
    for (const char* bytes :
         {"", R"({"level":4,"at":1.5})", R"({"level":4,"jobNumbers":true,"at":"today"})"}) {
        folder.file("level.json", bytes);
        EXPECT_EQ(SharedLevelStore::read(folder.path()), std::nullopt) << bytes;
    }
    EXPECT_EQ(SharedLevelStore::read(std::nullopt), std::nullopt);
    EXPECT_FALSE(SharedLevelStore::write({}, std::nullopt));
    EXPECT_FALSE(SharedLevelStore::write({}, folder.file("file") / "below"));
}

}  // namespace
}  // namespace vark
