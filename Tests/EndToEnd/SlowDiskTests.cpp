#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>

#include "Tests/EndToEnd/EndToEndTest.h"
#include "Tests/Support/FileWatch.h"

namespace vark::test {
namespace {

using std::chrono::seconds;

struct Scale {
    int files;
    seconds sync;
    /// From the signal to the end.
    seconds mostForQuitting;
    /// Of the large file that keeps the run going.
    std::int64_t megabytes;
};

/// The ordinary run only tells one save after the signal from two, one after the other.
Scale scale() {
    if (std::getenv("VARK_FULL_SCALE") != nullptr) return {30'000, seconds(15), seconds(17), 300};
    return {300, seconds(3), seconds(6), 60};
}

class SlowDisk : public EndToEndTest {
  protected:
    /// How many saves were under way at once, at most.
    static int mostAtOnce(std::string_view log) {
        int now = 0;
        int most = 0;
        for (const char mark : log)
            most = std::max(most, now += mark == '+' ? 1 : -1);
        return most;
    }
};

TEST_F(SlowDisk, HasOneSaveToDoAndQuittingWaitsForOne) {
    const Scale scale = test::scale();
    for (int index = 0; index < scale.files; ++index)
        vark.write(fmt::format("Shoot/{}/take {}.mov", index % 100, index), std::to_string(index));
    std::filesystem::resize_file(vark.write("Shoot/zzz.mov", ""), static_cast<std::uintmax_t>(scale.megabytes)
                                                                      << 20);
    const std::filesystem::path log = vark.write("saves/log", "");
    vark.moveTo({.environment = {{"LD_PRELOAD", VARK_SLOW_DISK},
                                 {"VARK_SLOW_DISK_SECONDS", std::to_string(scale.sync.count())},
                                 {"VARK_SLOW_DISK_LOG", log}}});

    Process sending = vark.start({"send", (vark.home() / "Shoot").string(), "--rate", "1MB"});
    EXPECT_EQ(sending.exitWithin(scale.sync * 3), std::nullopt) << sending.output() << sending.errors();
    FileWatch watch(log.parent_path());
    ASSERT_TRUE(watch.until([&] { return readWholeFile(log).ends_with('+'); }, std::chrono::minutes(1),
                            sending.descriptor()));
    EXPECT_EQ(mostAtOnce(readWholeFile(log)), 1);

    const auto begun = std::chrono::steady_clock::now();
    sending.signal(SIGINT);
    EXPECT_EQ(sending.wait(std::chrono::minutes(2)), exitCode(130)) << sending.errors();
    const std::chrono::duration<double> quitting = std::chrono::steady_clock::now() - begun;
    fmt::print("{} files: quitting took {:.1f} s, and {} MB was the most memory.\n", scale.files,
               quitting.count(), sending.peakMemory() >> 20);
    EXPECT_LT(quitting, scale.mostForQuitting);
    EXPECT_LE(mostAtOnce(readWholeFile(log)), 2);
#if !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer)
    EXPECT_LT(sending.peakMemory(), 150 << 20);
#endif
    // What was on its way when the signal came may have landed without our knowing.
    EXPECT_GE(vark.savedStates()["verified"] + 4, static_cast<int>(box.files().size()));
}

}  // namespace
}  // namespace vark::test
