#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Tests/Support/AsAnOrdinaryUser.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Policies/LocalCache.h"

namespace vark::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

constexpr auto neverInUse = [](const fs::path&) { return false; };

/// Sizes on the disk are whole blocks, so the tests go by what a file takes and not by its length.
class LocalCacheTest : public testing::Test {
  protected:
    fs::path fill(const std::string& name, std::size_t size = 100'000) {
        return folder.file(name, std::string(size, 'x'));
    }
    TemporaryFolder folder;
};

TEST_F(LocalCacheTest, MeasuresWhatFreeingWouldGiveBack) {
    const fs::path file = fill("cache/deep/.hidden");
    const std::int64_t one = LocalCache::size(file);
    EXPECT_GE(one, 100'000);
    fill("cache/b");
    fill("elsewhere/c");
    fs::create_symlink(folder / "elsewhere", folder / "cache/link");
    fs::create_symlink(folder / "elsewhere/c", folder / "cache/file link");
    EXPECT_EQ(LocalCache::size(folder / "cache"), 2 * one);
    EXPECT_EQ(LocalCache::size(folder / "nowhere"), 0);

    const LocalCache::Report report = LocalCache::measure({{"Copies", folder / "cache"},
                                                           {"Nothing", folder / "nowhere"},
                                                           {"Empty", folder.file("empty")},
                                                           {"One file", file}});
    EXPECT_THAT(report.lines,
                ElementsAre(LocalCache::Line{"Copies", 2 * one}, LocalCache::Line{"One file", one}));
    EXPECT_EQ(report.total(), 3 * one);
}

TEST_F(LocalCacheTest, EmptiesFoldersButForWhatMustStayAndWhatIsInUse) {
    const std::int64_t one = LocalCache::size(fill("cache/a"));
    fill("cache/sub/b");
    fill("cache/keep me");
    fill("cache/busy/c");
    const fs::path file = fill("a file");
    fs::create_directories(folder / "outside");
    fill("outside/d");
    fs::create_directory_symlink(folder / "outside", folder / "cache/link");
    std::vector<std::string> asked;
    const LocalCache::Freed freed = LocalCache::evict(
        {{"Nowhere", folder / "nowhere"}, {"File", file}, {"Copies", folder / "cache", {"keep me"}}},
        [&](const fs::path& member) {
            asked.push_back(member.filename());
            return member.filename() == "busy";
        });
    EXPECT_EQ(freed, (LocalCache::Freed{2 * one, {"busy"}}));
    EXPECT_THAT(asked, UnorderedElementsAre("a", "sub", "busy", "link"));
    EXPECT_TRUE(fs::exists(folder / "cache/keep me"));
    EXPECT_TRUE(fs::exists(folder / "cache/busy/c"));
    EXPECT_TRUE(fs::exists(folder / "outside/d"));
    EXPECT_TRUE(fs::exists(file));
    EXPECT_FALSE(fs::exists(folder / "cache/sub"));
}

TEST_F(LocalCacheTest, NamesWhatCouldNotBeRemoved) {
    fill("cache/locked/a");
    fs::permissions(folder / "cache/locked", fs::perms(0555));
    fs::permissions(folder.path(), fs::perms(0755));
    {
        const AsAnOrdinaryUser ordinary;
        EXPECT_EQ(LocalCache::evict({{"Copies", folder / "cache"}}, neverInUse),
                  (LocalCache::Freed{0, {"locked"}}));
    }
    fs::permissions(folder / "cache/locked", fs::perms(0755));
}

TEST_F(LocalCacheTest, SweepsWhatAKilledProcessLeftUnfinishedAndNothingElse) {
    // Of a process that has ended, and so its number is nobody's.
    const pid_t child = fork();
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    const std::string dead = std::to_string(child);
    const std::string id = "8F0C1B1E-0B0A-4C0D-9E0F-102030405060";
    const std::int64_t one = LocalCache::size(fill("left/.vark-" + dead + "-" + id + ".tmp"));
    fill("left/.vark-" + id + ".tmp");
    fs::last_write_time(folder / ("left/.vark-" + id + ".tmp"),
                        fs::file_time_type::clock::now() - std::chrono::hours(2));
    fill("stays/.vark-9F0C1B1E-0B0A-4C0D-9E0F-102030405060.tmp");
    fill("stays/.vark-" + std::to_string(getpid()) + "-" + id + ".tmp");
    fill("stays/.vark-" + dead + "-" + id);
    fill("stays/vark-" + dead + ".tmp");
    ASSERT_EQ(mkfifo((folder / ("stays/.vark-" + dead + "-pipe.tmp")).c_str(), 0600), 0);
    // Its maker's number is not known here, as in another container, but somebody is writing it.
    UnfinishedFile written(folder / ("stays/.vark-" + dead + "-" + id + "2.tmp"), 0600);

    const std::vector<fs::path> folders = {folder / "left", folder / "stays", folder / "nowhere"};
    EXPECT_EQ(LocalCache::sizeOfLeftovers(folders), 2 * one);
    EXPECT_EQ(LocalCache::sweep(folders), 2 * one);
    EXPECT_TRUE(fs::is_empty(folder / "left"));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "stays"), {}), 6);
}

TEST(LocalCache, SaysWhatItHoldsAndWhatItFreed) {
    EXPECT_EQ(LocalCache::measure({}), LocalCache::Report{});
    EXPECT_TRUE(LocalCache::Report{}.isEmpty());
    EXPECT_EQ(LocalCache::Report{}.describe(), "Vark is holding nothing on this Mac.");
    EXPECT_EQ((LocalCache::Report{{{"a", 1'500'000}, {"b", 500'000}}}.describe()),
              "Vark is holding 2 MB on this Mac.");

    struct Case {
        LocalCache::Freed freed;
        const char* words;
    };
    const Case cases[] = {
        {LocalCache::evict({}, neverInUse), "There was nothing to free."},
        {{5'000'000, {}}, "Freed 5 MB."},
        {{0, {"a.mov"}}, "There was nothing to free. a.mov is still in use, so it was left alone."},
        {{5'000'000, {"a", "b"}}, "Freed 5 MB. 2 files are still in use, so they were left alone."},
    };
    for (const Case& one : cases)
        EXPECT_EQ(one.freed.describe(), one.words);
}

}  // namespace
}  // namespace vark::test
