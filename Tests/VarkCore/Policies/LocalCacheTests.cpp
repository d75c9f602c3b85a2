#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Policies/LocalCache.h"

namespace vark::test {
namespace {

namespace fs = std::filesystem;

/// Sizes on the disk are whole blocks, so the tests go by what a file takes and not by its length.
class LocalCacheTest : public testing::Test {
  protected:
    fs::path fill(const std::string& name, std::size_t size = 100'000) {
        return folder.file(name, std::string(size, 'x'));
    }
    TemporaryFolder folder;
};

TEST_F(LocalCacheTest, EmptiesFoldersButForWhatMustStayAndWhatIsInUse) {
    const std::int64_t one = LocalCache::size(fill("cache/a"));
    for (const char* name : {"cache/sub/b", "cache/keep me", "cache/busy/c", "a file", "outside/d"})
        fill(name);
    fs::create_directory_symlink(folder / "outside", folder / "cache/link");
    const LocalCache::Freed freed =
        LocalCache::evict({{"File", folder / "a file"}, {"Copies", folder / "cache", {"keep me"}}},
                          [](const fs::path& member) { return member.filename() == "busy"; });
    EXPECT_EQ(freed, (LocalCache::Freed{2 * one, {"busy"}}));
    for (const char* name : {"cache/keep me", "cache/busy/c", "a file", "outside/d"})
        EXPECT_TRUE(fs::exists(folder / name)) << name;
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "cache"), {}), 2);
}

TEST_F(LocalCacheTest, SweepsWhatAKilledProcessLeftUnfinishedAndNothingElse) {
    // Of a process that has ended, and so its number is nobody's.
    const pid_t child = fork();
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    const std::string dead = std::to_string(child);
    const std::string id = "8F0C1B1E-0B0A-4C0D-9E0F-102030405060";
    const std::int64_t one = LocalCache::size(fill("left/.vark-" + dead + "-" + id + ".tmp"));
    const fs::path old = fill("left/.vark-" + id + ".tmp");
    fs::last_write_time(old, fs::file_time_type::clock::now() - std::chrono::hours(2));
    fill("stays/.vark-9F0C1B1E-0B0A-4C0D-9E0F-102030405060.tmp");
    fill("stays/.vark-" + std::to_string(getpid()) + "-" + id + ".tmp");
    fill("stays/vark-" + dead + ".tmp");
    ASSERT_EQ(mkfifo((folder / ("stays/.vark-" + dead + "-pipe.tmp")).c_str(), 0600), 0);
    // Its maker's number is not known here, as in another container, but somebody is writing it.
    UnfinishedFile written(folder / ("stays/.vark-" + dead + "-" + id + "2.tmp"), 0600);
    EXPECT_EQ(LocalCache::sizeOfLeftovers({folder / "left", folder / "stays"}), 2 * one);
    EXPECT_EQ(LocalCache::sweep({folder / "left", folder / "stays", folder / "nowhere"}), 2 * one);
    EXPECT_TRUE(fs::is_empty(folder / "left"));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "stays"), {}), 5);
}

}  // namespace
}  // namespace vark::test
