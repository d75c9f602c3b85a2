#include "VarkCore/Transfer/Walker.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "Tests/Support/AsAnOrdinaryUser.h"
#include "Tests/Support/FakeSystem.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

using Names = std::vector<std::string>;
using Kind = Walker::WalkError::Kind;
using Passed = Walker::PassedOver::Kind;

class WalkerTest : public testing::Test {
  protected:
    Names namesIn(const std::filesystem::path& path) const {
        Names names;
        for (const Walker::Found& file : Walker::walk(path, volumes).files)
            names.push_back(file.relativePath);
        return names;
    }

    std::optional<Kind> failure(const std::filesystem::path& path) const {
        try {
            Walker::walk(path, volumes);
            return std::nullopt;
        } catch (const Walker::WalkError& error) {
            return error.kind();
        }
    }

    TemporaryFolder folder;
    FakeVolumes volumes;
};

TEST_F(WalkerTest, AFolderGivesItsFilesInTheOrderOfAFileBrowser) {
    for (const char* name :
         {"Shoot/a10", "Shoot/a2", "Shoot/B/x", "Shoot/b/y", "Shoot/Movie.app/Contents/main"}) {
        folder.file(name, "12345");
    }
    const Walker::Result result = Walker::walk(folder / "Shoot", volumes);
    EXPECT_TRUE(result.isFolder);
    EXPECT_EQ(result.totalBytes(), 25);
    const Names expected = {"Shoot/a2", "Shoot/a10", "Shoot/B/x", "Shoot/b/y",
                            "Shoot/Movie.app/Contents/main"};
    EXPECT_EQ(namesIn(folder / "Shoot"), expected);
    EXPECT_EQ(namesIn(folder.path().native() + "/x/.././Shoot//"), expected);
}

TEST_F(WalkerTest, SizeAndTimeAreThoseOfTheFile) {
    const std::filesystem::path file = folder.file("a", "123");
    const timespec times[2] = {{.tv_sec = 5, .tv_nsec = 0},
                               {.tv_sec = 1'700'000'000, .tv_nsec = 500'000'000}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    const Walker::Result alone = Walker::walk(file, volumes);
    EXPECT_FALSE(alone.isFolder);
    EXPECT_EQ(alone.files, (std::vector<Walker::Found>{{"a", 3, 1'700'000'000.5}}));
    EXPECT_EQ(Walker::walk(folder.path(), volumes).files.at(0).mtime, 1'700'000'000.5);
}

TEST_F(WalkerTest, WhatIsNeverSentIsPassedOver) {
    for (const char* name : {"R/.DS_Store", "R/._clip", "R/.hidden", "R/.Trashes/inside", "R/Thumbs.db",
                             "R/desktop.ini", "R/desktop.INI", "R/.git/inside", "R/keep"}) {
        folder.file(name);
    }
    create_symlink(folder / "R/keep", folder / "R/link");
    create_directory_symlink(folder / "R", folder / "R/loop");
    ASSERT_EQ(mkfifo((folder / "R/pipe").c_str(), 0600), 0);
    create_directory(folder / "R/empty");
    EXPECT_EQ(namesIn(folder / "R"), (Names{"R/desktop.INI", "R/keep"}));
    EXPECT_EQ(Walker::walk(folder / "R", volumes).passedOver,
              (std::vector<Walker::PassedOver>{{"R/.DS_Store", Passed::ignored},
                                               {"R/.Trashes", Passed::ignored},
                                               {"R/._clip", Passed::ignored},
                                               {"R/.git", Passed::hidden},
                                               {"R/.hidden", Passed::hidden},
                                               {"R/Thumbs.db", Passed::ignored},
                                               {"R/desktop.ini", Passed::ignored},
                                               {"R/empty", Passed::emptyFolder},
                                               {"R/link", Passed::link},
                                               {"R/loop", Passed::link},
                                               {"R/pipe", Passed::special}}));
    EXPECT_EQ(namesIn(folder / "R/.DS_Store"), (Names{".DS_Store"}));
    EXPECT_TRUE(Walker::isIgnored("._x"));
    EXPECT_FALSE(Walker::isIgnored(".hidden"));

    folder.file("Bare/.DS_Store");
    const Walker::Result bare = Walker::walk(folder / "Bare", volumes);
    EXPECT_TRUE(bare.isFolder);
    EXPECT_TRUE(bare.files.empty());
    EXPECT_EQ(bare.totalBytes(), 0);
}

TEST_F(WalkerTest, HiddenFilesAndWhatLinksLeadToAreSentWhenAskedFor) {
    folder.file("elsewhere/far");
    for (const char* name : {"R/.DS_Store", "R/.hidden", "R/.git/inside", "R/sub/keep"})
        folder.file(name);
    create_symlink(folder / "R/sub/keep", folder / "R/file");
    create_symlink(folder / "nowhere", folder / "R/dangling");
    create_directory_symlink(folder / "elsewhere", folder / "R/folder");
    create_directory_symlink(folder / "R", folder / "R/sub/loop");
    create_directory_symlink(folder / "R", folder / "link");

    const auto names = [&](const char* root, Walker::Options options) {
        Names found;
        for (const Walker::Found& file : Walker::walk(folder / root, volumes, options, {}).files)
            found.push_back(file.relativePath);
        return found;
    };
    EXPECT_EQ(names("R", {.hidden = true}), (Names{"R/.git/inside", "R/.hidden", "R/sub/keep"}));
    EXPECT_EQ(names("R", {.followLinks = true}), (Names{"R/file", "R/folder/far", "R/sub/keep"}));
    EXPECT_EQ(names("link", {.followLinks = true}), (Names{"link/file", "link/folder/far", "link/sub/keep"}));
    EXPECT_EQ(Walker::walk(folder / "R", volumes, {.followLinks = true}, {}).passedOver,
              (std::vector<Walker::PassedOver>{{"R/.DS_Store", Passed::ignored},
                                               {"R/.git", Passed::hidden},
                                               {"R/.hidden", Passed::hidden},
                                               {"R/dangling", Passed::link},
                                               {"R/sub/loop", Passed::link}}));
}

TEST_F(WalkerTest, EndsWhenItIsCancelled) {
    folder.file("R/keep");
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(Walker::walk(folder / "R", volumes, {}, stop.get_token()), CancellationError);
}

TEST_F(WalkerTest, NamesThatAreNoTextCostNoMoreThanThemselves) {
    folder.file("N/line\nend \"x\" \xC3\xA9");
    EXPECT_EQ(namesIn(folder / "N"), (Names{"N/line\nend \"x\" \xC3\xA9"}));
    folder.file(
        "N/b\xFF"
        "ad\n/inside");
    EXPECT_EQ(namesIn(folder / "N"), (Names{"N/line\nend \"x\" \xC3\xA9"}));
    EXPECT_EQ(Walker::walk(folder / "N", volumes).passedOver,
              (std::vector<Walker::PassedOver>{{"N/b\\xffad\\n", Passed::nameIsNotText}}));
    EXPECT_EQ(failure(folder / "N/b\xFF"
                               "ad\n"),
              Kind::nameIsNotText);
}

TEST_F(WalkerTest, OnlyFilesAndFoldersCanBeSent) {
    create_symlink(folder.file("a"), folder / "link");
    create_directory_symlink(folder.path(), folder / "folderLink");
    EXPECT_EQ(failure(folder / "link"), Kind::link);
    EXPECT_EQ(failure(folder.path().native() + "/folderLink/"), Kind::link);
    EXPECT_EQ(failure("/dev/null"), Kind::notAFile);
    EXPECT_THROW(Walker::walk(folder / "missing", volumes), FileError);
    EXPECT_EQ(Walker::WalkError(Kind::notAFile, "/dev/null").what(),
              std::string("/dev/null is not a file or folder that can be sent."));
    EXPECT_EQ(Walker::WalkError(Kind::cannotRead, "/a").what(), std::string("/a could not be read."));
}

TEST_F(WalkerTest, AFolderThatCannotBeListedCostsOnlyItsOwnContents) {
    folder.file("R/closed/inside");
    folder.file("R/open");
    permissions(folder / "R/closed", std::filesystem::perms::none);
    permissions(folder.path(), std::filesystem::perms{0711});
    const test::AsAnOrdinaryUser ordinary;
    EXPECT_EQ(namesIn(folder / "R"), (Names{"R/open"}));
    EXPECT_EQ(Walker::walk(folder / "R", volumes).passedOver,
              (std::vector<Walker::PassedOver>{{"R/closed", Passed::unreadable}}));
    EXPECT_EQ(failure(folder / "R/closed"), Kind::cannotRead);
}

TEST_F(WalkerTest, ADeepTreeTakesNoMoreOpenFilesThanAFlatOne) {
    std::string deep = "R";
    for (int level = 0; level < 100; ++level)
        deep += "/d";
    folder.file(deep + "/bottom");
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit few{.rlim_cur = 64, .rlim_max = before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    EXPECT_EQ(namesIn(folder / "R").size(), 1U);
    setrlimit(RLIMIT_NOFILE, &before);
}

TEST_F(WalkerTest, TellsTheVolume) {
    volumes.table = {{.name = "Disk", .path = "/", .id = {}, .isBoot = true},
                     {.name = "CARD", .path = folder / "CARD", .id = {}, .ejectable = true}};
    folder.file("CARD/DCIM/a");
    EXPECT_EQ(Walker::walk(folder / "CARD/DCIM", volumes).volumeName, "CARD");
    EXPECT_EQ(Walker::walk(folder.file("other"), volumes).volumeName, std::nullopt);
}

}  // namespace
}  // namespace vark
