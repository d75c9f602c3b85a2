#include <fmt/format.h>

#include "Tests/EndToEnd/EndToEndTest.h"
#include "Tests/Support/BuildTree.h"

namespace vark::test {
namespace {

constexpr std::chrono::seconds oneSave(3);

/// How many saves were under way at once, at most.
int mostAtOnce(std::string_view log) {
    int now = 0;
    int most = 0;
    for (const char mark : log)
        most = std::max(most, now += mark == '+' ? 1 : -1);
    return most;
}

class SlowDisk : public EndToEndTest {};

TEST_F(SlowDisk, HasOneSaveToDoAndQuittingWaitsForOne) {
    shoot(300);
    // A large file keeps the run going.
    std::filesystem::resize_file(vark.write("Shoot/zzz.mov", ""), 60 << 20);
    const std::filesystem::path log = vark.write("saves/log", "");
    vark.moveTo({.environment = {{"LD_PRELOAD", buildTree() / "Tests/EndToEnd/libSlowDisk.so"},
                                 {"VARK_SLOW_DISK_SECONDS", std::to_string(oneSave.count())},
                                 {"VARK_SLOW_DISK_LOG", log}}});

    Process sending = vark.start({"send", pathOf("Shoot"), "--rate", "1MB"});
    EXPECT_EQ(sending.exitWithin(3 * oneSave), std::nullopt) << sending.output() << sending.errors();
    const FileWatch watch(log.parent_path());
    ASSERT_TRUE(watch.until([&] { return readWholeFile(log).ends_with('+'); }, sending.descriptor()));
    EXPECT_EQ(mostAtOnce(readWholeFile(log)), 1);

    const auto begun = std::chrono::steady_clock::now();
    sending.signal(SIGINT);
    const Finished stopped = sending.finish();
    const std::chrono::duration<double> quitting = std::chrono::steady_clock::now() - begun;
    expectExit(stopped, 130);
    fmt::print("Quitting took {:.1f} s, and {} MB was the most memory.\n", quitting.count(),
               stopped.peakMemory >> 20);
    EXPECT_LT(quitting, 2 * oneSave) << "and not for one after the other";
    EXPECT_LE(mostAtOnce(readWholeFile(log)), 2);
    // What was on its way when the signal came may have landed without our knowing.
    const std::map<std::string, std::string> states = vark.savedStates();
    const auto verified =
        std::ranges::count(states, "verified", [](const auto& state) { return state.second; });
    EXPECT_GE(verified + 4, std::ssize(box.files()));
}

}  // namespace
}  // namespace vark::test
