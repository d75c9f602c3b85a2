#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/FakeSystem.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Transfer/Rescue.h"

namespace vark::test {
namespace {

namespace fs = std::filesystem;

class RescueTest : public testing::Test {
  protected:
    std::optional<Rescue::Kept> keep(const Rescue::Mover& move = Rescue::rename) {
        return Rescue::keep(folder / "leaving", folder / "Downloads", day, Calendar("UTC"), move);
    }

    TemporaryFolder folder;
    const Date day = Date::fromSince1970(1'740'994'200);
    const std::string name = "Vark – not sent yet 3 Mar 2025";
};

TEST_F(RescueTest, MovesAllOfAFolderHiddenFilesAndSubfoldersToo) {
    folder.file("leaving/a.mov", "1234");
    folder.file("leaving/.hidden", "12");
    folder.file("leaving/sub/deep/b.mov", "123");
    fs::create_directories(folder / "leaving/empty");
    const std::optional<Rescue::Kept> kept = keep();
    EXPECT_EQ(kept, (Rescue::Kept{folder.path() / "Downloads" / name, 3, 9}));
    EXPECT_EQ(kept->sentence(), "3 files that had not been sent yet are in " + name + " in your Downloads.");
    EXPECT_EQ(readWholeFile(kept->folder / "sub/deep/b.mov"), "123");
    EXPECT_TRUE(fs::exists(kept->folder / "empty"));
    EXPECT_FALSE(fs::exists(folder / "leaving"));
    EXPECT_EQ((Rescue::Kept{"/d/" + name, 1, 1}).sentence(),
              "1 file that had not been sent yet are in " + name + " in your Downloads.");
}

TEST_F(RescueTest, MakesNoFolderForNothing) {
    fs::create_directories(folder / "leaving");
    EXPECT_EQ(keep(), std::nullopt);
    EXPECT_FALSE(fs::exists(folder / "leaving"));
    EXPECT_FALSE(fs::exists(folder / "Downloads"));
    EXPECT_THROW(keep(), fs::filesystem_error);
}

TEST_F(RescueTest, TakesTheNextFreeNameAndOverwritesNothing) {
    folder.file("leaving/a", "first");
    keep();
    folder.file("leaving/a", "second");
    EXPECT_EQ(keep()->folder.filename(), name + " 2");
    for (int number = 3; number <= 99; ++number)
        folder.file("Downloads/" + name + " " + std::to_string(number) + "/a", "before");
    folder.file("leaving/a", "third");
    EXPECT_THROW(keep(), fs::filesystem_error);
    EXPECT_EQ(readWholeFile(folder / "leaving/a"), "third");
    EXPECT_EQ(readWholeFile(folder.path() / "Downloads" / (name + " 99") / "a"), "before");
}

TEST_F(RescueTest, CopiesWhatCannotBeMovedWithItsTimes) {
    const auto time = fs::file_time_type::clock::now() - std::chrono::hours(1000);
    fs::last_write_time(folder.file("leaving/sub/a.mov", "1234"), time);
    fs::create_symlink("nowhere", folder / "leaving/link");
    const auto kept = keep([](const fs::path&, const fs::path&) { return false; });
    EXPECT_EQ(kept->files, 1);
    EXPECT_EQ(readWholeFile(kept->folder / "sub/a.mov"), "1234");
    EXPECT_EQ(fs::last_write_time(kept->folder / "sub/a.mov"), time);
    EXPECT_EQ(fs::read_symlink(kept->folder / "link"), "nowhere");
    EXPECT_FALSE(fs::exists(folder / "leaving"));
}

TEST_F(RescueTest, FindsTheDownloads) {
    FakeUserFolders folders(folder.path());
    EXPECT_EQ(Rescue::downloads(folders), folder / "Downloads");
    folders.knowsLibrary = false;
    folders.base = folder / "home";
    EXPECT_EQ(Rescue::downloads(folders), folder.path() / "home" / "Downloads");
}

}  // namespace
}  // namespace vark::test
