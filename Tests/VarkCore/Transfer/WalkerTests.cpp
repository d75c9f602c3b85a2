#include "VarkCore/Transfer/Walker.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Tests/Support/AsAnOrdinaryUser.h"
#include "Tests/Support/Fakes/FakeSystem.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

using Names = std::vector<std::string>;
using Kind = Walker::WalkError::Kind;
using Passed = Walker::PassedOver::Kind;
using PassedOver = std::vector<Walker::PassedOver>;

class WalkerTest : public testing::Test {
  protected:
    Walker::Result walk(const std::filesystem::path& path, Walker::Options options = {}) const {
        return Walker::walk(path, volumes, options, {});
    }
    Names namesIn(const std::filesystem::path& path, Walker::Options options = {}) const {
        Names names;
        for (const Walker::Found& file : walk(path, options).files)
            names.push_back(file.relativePath);
        return names;
    }
    std::optional<Kind> failure(const std::filesystem::path& path) const {
        try {
            walk(path);
            return std::nullopt;
        } catch (const Walker::WalkError& error) {
            return error.kind();
        }
    }

    TemporaryFolder folder;
    FakeVolumes volumes;
};

TEST_F(WalkerTest, AFolderGivesItsFilesInTheOrderOfAFileBrowser) {
    for (const char* name : {"S/a10", "S/a2", "S/B/x", "S/b/y", "S/Movie.app/Contents/main"})
        folder.file(name, "12345");
    const Names expected = {"S/a2", "S/a10", "S/B/x", "S/b/y", "S/Movie.app/Contents/main"};
    EXPECT_EQ(namesIn(folder / "S"), expected);
    EXPECT_EQ(namesIn(folder.path().native() + "/x/.././S//"), expected);
    EXPECT_TRUE(walk(folder / "S").isFolder);
    volumes.table = {{.name = "CARD", .path = folder / "S"}};
    const std::filesystem::path alone = folder / "S/a2";
    EXPECT_EQ(walk(alone).volumeName, "CARD");
    EXPECT_EQ(walk(alone).files, (std::vector<Walker::Found>{{"a2", 5, stampOf(alone).mtime}}));
}

TEST_F(WalkerTest, WhatIsNotSentIsPassedOverUnlessItIsAskedFor) {
    folder.file("elsewhere/far");
    for (const char* name : {"R/._clip", "R/.hidden", "R/.Trashes/inside", "R/.git/inside", "R/sub/keep"})
        folder.file(name);
    create_directory(folder / "R/empty");
    ASSERT_EQ(mkfifo((folder / "R/pipe").c_str(), 0600), 0);
    create_symlink(folder / "nowhere", folder / "R/dangling");
    create_directory_symlink(folder / "elsewhere", folder / "R/folder");
    create_directory_symlink(folder / "R", folder / "R/sub/loop");
    create_directory_symlink(folder / "R", folder / "link");
    EXPECT_EQ(namesIn(folder / "R"), (Names{"R/sub/keep"}));
    EXPECT_EQ(walk(folder / "R").passedOver, (PassedOver{{"R/.Trashes", Passed::ignored},
                                                         {"R/._clip", Passed::ignored},
                                                         {"R/.git", Passed::hidden},
                                                         {"R/.hidden", Passed::hidden},
                                                         {"R/dangling", Passed::link},
                                                         {"R/empty", Passed::emptyFolder},
                                                         {"R/folder", Passed::link},
                                                         {"R/pipe", Passed::special},
                                                         {"R/sub/loop", Passed::link}}));
    EXPECT_EQ(namesIn(folder / "R", {.hidden = true}), (Names{"R/.git/inside", "R/.hidden", "R/sub/keep"}));
    EXPECT_EQ(namesIn(folder / "link", {.followLinks = true}), (Names{"link/folder/far", "link/sub/keep"}));
    EXPECT_EQ(namesIn(folder / "R/._clip"), (Names{"._clip"})) << "named by the person";
}

TEST_F(WalkerTest, NamesThatAreNoTextCostNoMoreThanThemselves) {
    const std::string broken = "N/b\xFFgg\n";
    folder.file("N/line\nend \"x\" \xC3\xA9");
    folder.file(broken + "/inside");
    EXPECT_EQ(namesIn(folder / "N"), (Names{"N/line\nend \"x\" \xC3\xA9"}));
    EXPECT_EQ(walk(folder / "N").passedOver, (PassedOver{{"N/b\\xffgg\\n", Passed::nameIsNotText}}));
    EXPECT_EQ(failure(folder / broken), Kind::nameIsNotText);
}

TEST_F(WalkerTest, OnlyFilesAndFoldersCanBeSent) {
    create_symlink(folder.file("a"), folder / "link");
    create_directory_symlink(folder.path(), folder / "folderLink");
    EXPECT_EQ(failure(folder / "link"), Kind::link);
    EXPECT_EQ(failure(folder.path().native() + "/folderLink/"), Kind::link);
    EXPECT_EQ(failure("/dev/null"), Kind::notAFile);
    EXPECT_THROW(walk(folder / "missing"), FileError);
}

TEST_F(WalkerTest, AFolderThatCannotBeListedCostsOnlyItsOwnContents) {
    folder.file("R/closed/inside");
    folder.file("R/open");
    permissions(folder / "R/closed", std::filesystem::perms::none);
    permissions(folder.path(), std::filesystem::perms{0711});
    const test::AsAnOrdinaryUser ordinary;
    EXPECT_EQ(namesIn(folder / "R"), (Names{"R/open"}));
    EXPECT_EQ(walk(folder / "R").passedOver, (PassedOver{{"R/closed", Passed::unreadable}}));
    EXPECT_EQ(failure(folder / "R/closed"), Kind::cannotRead);
}

}  // namespace
}  // namespace vark
