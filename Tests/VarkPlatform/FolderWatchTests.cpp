#include <fcntl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <semaphore>
#include <utility>
#include <vector>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkPlatform/Linux/InotifyFolderWatch.h"

namespace vark::test {
namespace {

namespace fs = std::filesystem;

/// A watch on a folder in which two files lie.
class FolderWatchTest : public testing::Test {
  protected:
    FolderWatchTest() {
        home.file("watched/a", "a");
        home.file("elsewhere", "b");
    }

    void watch(const fs::path& place) {
        watching = std::make_unique<InotifyFolderWatch>();
        watching->start(place, [this] { rings.release(); });
    }
    /// A call that is late fails only by this.
    bool hasRung() { return rings.try_acquire_for(std::chrono::minutes(1)); }

    TemporaryFolder home;
    const fs::path folder = home / "watched";
    std::counting_semaphore<> rings{0};
    std::unique_ptr<InotifyFolderWatch> watching;
};

TEST_F(FolderWatchTest, HearsNamesThatChangeAndFilesThatClose) {
    Descriptor open(::open((folder / "a").c_str(), O_WRONLY | O_CLOEXEC));
    const std::vector<std::pair<const char*, std::function<void()>>> changes = {
        {"made", [&] { fs::create_directory(folder / "b"); }},
        {"moved in", [&] { fs::rename(home / "elsewhere", folder / "d"); }},
        {"removed", [&] { fs::remove(folder / "b"); }},
        {"closed", [&] { open.close(); }},
    };
    for (const auto& [what, change] : changes) {
        watch(folder);
        change();
        EXPECT_TRUE(hasRung()) << what;
        // Its end makes sure that the next one hears nothing of this.
        watching.reset();
        while (rings.try_acquire()) {
        }
    }
}

TEST_F(FolderWatchTest, DoesNotHearWhoReadsOrLooksAtALock) {
    const FileLock held = FileLock::exclusive(folder / ".lock");
    watch(folder);
    // Whoever is called reads, and looks whether the lock is free: that must not call it again.
    readWholeFile(folder / "a");
    EXPECT_TRUE(FileLock::isHeld(folder / ".lock"));
    fs::create_directory(folder / "last");
    ASSERT_TRUE(hasRung());
    watching.reset();
    EXPECT_FALSE(rings.try_acquire());
}

TEST_F(FolderWatchTest, FollowsAFolderThatIsMadeLaterAndMadeAnew) {
    const fs::path later = home / "not/there";
    watch(later);
    const std::vector<std::function<void()>> changes = {
        [&] { fs::create_directories(later); }, [&] { fs::create_directory(later / "a"); },
        [&] { fs::rename(later, home / "away"); }, [&] { fs::create_directory(later); },
        [&] { fs::create_directory(later / "b"); }};
    for (const auto& change : changes) {
        change();
        EXPECT_TRUE(hasRung());
    }
    // Each was told once, so that none of these has taken the call of another for its own.
    watching.reset();
    EXPECT_FALSE(rings.try_acquire());
}

}  // namespace
}  // namespace vark::test
