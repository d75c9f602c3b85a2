#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "Tests/Support/AsAnOrdinaryUser.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Transfer/Rescue.h"

namespace vark::test {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::UnorderedElementsAre;

class RescueTest : public testing::Test {
  protected:
    std::optional<Rescue::Kept> keep(const Rescue::Mover& move = Rescue::rename) {
        return Rescue::keep(folder / "leaving", folder / "Downloads", day, Calendar("UTC"), move);
    }
    static bool toAnotherDisk(const fs::path&, const fs::path&) { return false; }
    static std::vector<std::string> whys(const Rescue::Kept& kept) {
        std::vector<std::string> whys;
        for (const CarryAcross::Left& one : kept.left)
            whys.push_back(one.why);
        return whys;
    }

    TemporaryFolder folder;
    const Date day = Date::fromSince1970(1'740'994'200);
    const std::string name = "Vark – not sent yet 3 Mar 2025";
};

TEST_F(RescueTest, MovesAllOfAFolderHiddenFilesAndSubfoldersToo) {
    folder.file("leaving/.hidden", "12");
    folder.file("leaving/sub/deep/b.mov", "123");
    fs::create_directories(folder / "leaving/empty");
    const std::optional<Rescue::Kept> kept = keep();
    EXPECT_EQ(kept, (Rescue::Kept{folder.path() / "Downloads" / name, 2, 5}));
    EXPECT_EQ(readWholeFile(kept->folder / "sub/deep/b.mov"), "123");
    EXPECT_TRUE(fs::exists(kept->folder / "empty"));
    EXPECT_FALSE(fs::exists(folder / "leaving"));
    fs::create_directories(folder / "leaving");
    EXPECT_EQ(keep(), std::nullopt) << "no folder is made for nothing";
}

TEST_F(RescueTest, TakesTheNextFreeNameAndOverwritesNothing) {
    folder.file("leaving/a", "first");
    keep();
    folder.file("leaving/a", "second");
    EXPECT_EQ(keep()->folder.filename(), name + " 2");
    // Nor what has come meanwhile, moved or copied.
    for (const Rescue::Mover& move : {Rescue::Mover(Rescue::rename), Rescue::Mover(toAnotherDisk)}) {
        folder.file("leaving/a", "ours");
        const auto kept = keep([&](const fs::path& from, const fs::path& to) {
            std::ofstream(to) << "theirs";
            return move(from, to);
        });
        EXPECT_EQ(readWholeFile(kept->folder / "a"), "theirs");
        EXPECT_EQ(readWholeFile(folder / "leaving/a"), "ours");
        EXPECT_EQ(kept->left.size(), 1U);
    }
}

TEST_F(RescueTest, CopiesWhatCannotBeMovedWithItsTimes) {
    const auto time = fs::file_time_type::clock::now() - std::chrono::hours(1000);
    fs::last_write_time(folder.file("leaving/sub/a.mov", "1234"), time);
    fs::create_symlink("nowhere", folder / "leaving/link");
    const auto kept = keep(toAnotherDisk);
    EXPECT_EQ(kept->files, 1);
    EXPECT_EQ(readWholeFile(kept->folder / "sub/a.mov"), "1234");
    EXPECT_EQ(fs::last_write_time(kept->folder / "sub/a.mov"), time);
    EXPECT_EQ(fs::read_symlink(kept->folder / "link"), "nowhere");
    EXPECT_FALSE(fs::exists(folder / "leaving"));
}

TEST_F(RescueTest, RemovesExactlyWhatItCopied) {
    for (const std::string member : {"one", "two"}) {
        folder.file("leaving/" + member + "/clip", "1234");
        folder.file("leaving/" + member + "/sub/other", "12");
    }
    fs::path first;
    const auto kept = keep([&](const fs::path& from, const fs::path&) {
        if (first.empty()) {
            first = from;
        } else {
            // The first member has been copied by now.
            std::ofstream(first / "clip", std::ios::app) << "a line more";
            std::ofstream(first / "sub/new") << "new";
        }
        return false;
    });
    EXPECT_EQ(readWholeFile(first / "clip"), "1234a line more");
    EXPECT_EQ(readWholeFile(first / "sub/new"), "new");
    EXPECT_FALSE(fs::exists(first / "sub/other"));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "leaving"), {}), 1);
    EXPECT_EQ(kept->files, 4);
    EXPECT_THAT(whys(*kept), UnorderedElementsAre(HasSubstr((first / "clip").string() + " changed"),
                                                  HasSubstr("came into " + (first / "sub").string())));
}

TEST_F(RescueTest, WhatCannotBeCopiedStaysAndStopsNothing) {
    fs::permissions(folder.path(), fs::perms::all);
    const AsAnOrdinaryUser person;
    folder.file("leaving/readable/a.mov", "1234");
    fs::permissions(folder / "leaving/readable", fs::perms(0555));
    folder.file("leaving/locked/b.mov", "1234");
    fs::permissions(folder / "leaving/locked", fs::perms(0));
    folder.file("leaving/z.mov", "1234");
    ASSERT_EQ(mkfifo((folder / "leaving/pipe").c_str(), 0600), 0);
    const auto kept = keep(toAnotherDisk);
    EXPECT_EQ(kept->files, 2);
    EXPECT_EQ(readWholeFile(kept->folder / "readable/a.mov"), "1234");
    EXPECT_EQ(fs::status(kept->folder / "readable").permissions(), fs::perms(0555));
    EXPECT_FALSE(fs::exists(folder / "leaving/readable"));
    EXPECT_FALSE(fs::exists(folder / "leaving/z.mov"));
    EXPECT_THAT(whys(*kept), UnorderedElementsAre(HasSubstr((folder / "leaving/pipe").string()),
                                                  HasSubstr((folder / "leaving/locked").string())));
    EXPECT_TRUE(fs::exists(folder / "leaving/pipe"));
    for (const fs::path& locked :
         {folder / "leaving/locked", kept->folder / "readable", kept->folder / "locked"})
        fs::permissions(locked, fs::perms::owner_all);
}

}  // namespace
}  // namespace vark::test
