#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/Upload/MacWideGate.h"
#include "VarkCore/Upload/UploadGate.h"

namespace vark {
namespace {

using std::chrono::milliseconds;
using test::TestLoop;

Task<int> workFor(Duration duration, int* running, int* mostRunning) {
    *mostRunning = std::max(*mostRunning, ++*running);
    co_await sleepFor(duration);
    co_return --*running;
}

Task<int> failingWork() {
    throw std::runtime_error("the work failed");
    co_return 0;
}

Task<bool> wasCancelled() {
    co_return co_await isCancelled();
}

TEST(UploadGate, LetsInNoMoreThanItsSlots) {
    TestLoop loop;
    UploadGate gate(2);
    int running = 0;
    int mostRunning = 0;
    for (int i = 0; i < 10; ++i)
        loop.start(gate.run(workFor(std::chrono::seconds(i % 3), &running, &mostRunning)));
    loop.advance(std::chrono::minutes(1));
    EXPECT_EQ(loop.scope.live(), 0U);
    EXPECT_EQ(mostRunning, 2);
    EXPECT_EQ(gate.highWaterMark(), 2);
}

TEST(UploadGate, WorkThatFailsGivesItsSlotBack) {
    TestLoop loop;
    UploadGate gate(1);
    for (int i = 0; i < 3; ++i)
        EXPECT_THROW(loop.run(gate.run(failingWork())), std::runtime_error);
    EXPECT_EQ(gate.highWaterMark(), 1);
}

TEST(UploadGate, ACancelledWaiterStaysUntilItsTurn) {
    TestLoop loop;
    UploadGate gate(1);
    int running = 0;
    int mostRunning = 0;
    loop.start(gate.run(workFor(std::chrono::seconds(5), &running, &mostRunning)));
    const TaskHandle<bool> waiting = loop.start(gate.run(wasCancelled()));
    loop.settle();
    waiting.cancel();
    loop.settle();
    EXPECT_FALSE(waiting.done());
    loop.advance(std::chrono::seconds(5));
    EXPECT_TRUE(waiting.result());
}

/// Another process that holds all slots of a gate until it is killed.
class HoldingProcess {
  public:
    HoldingProcess(const std::filesystem::path& folder, int slots) {
        std::vector<std::string> paths;
        for (int i = 0; i < slots; ++i)
            paths.push_back(folder / "gate" / ("slot-" + std::to_string(i) + ".lock"));
        int ready[2];
        if (pipe2(ready, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        child_ = fork();
        if (child_ == 0) hold(paths, ready[1]);
        close(ready[1]);
        char said = 0;
        const bool holds = read(ready[0], &said, 1) == 1;
        close(ready[0]);
        if (!holds) throw std::runtime_error("the other process got no slots");
    }
    ~HoldingProcess() { kill(); }
    HoldingProcess(const HoldingProcess&) = delete;
    HoldingProcess& operator=(const HoldingProcess&) = delete;

    void kill() {
        if (child_ <= 0) return;
        ::kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
        child_ = 0;
    }

  private:
    /// Calls only what a forked child may.
    [[noreturn]] static void hold(const std::vector<std::string>& paths, int ready) {
        for (const std::string& path : paths) {
            const int slot = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
            if (slot < 0 || flock(slot, LOCK_EX | LOCK_NB) != 0) _exit(1);
        }
        if (write(ready, "x", 1) != 1) _exit(1);
        for (;;)
            pause();
    }

    pid_t child_ = 0;
};

class Gate : public testing::Test {
  public:
    TemporaryFolder folder;
    MacWideGate gate{3, folder.path()};
};

TEST_F(Gate, GivesTheSlotOfAProcessThatDiedToWhoeverWaits) {
    HoldingProcess other(folder.path(), 3);
    TestLoop loop;
    const TaskHandle<bool> waiting = loop.start(gate.run(wasCancelled()));
    loop.advance(std::chrono::seconds(30));
    EXPECT_FALSE(waiting.done());
    EXPECT_EQ(gate.highWaterMark(), 0);
    other.kill();
    loop.advance(milliseconds(500));
    ASSERT_TRUE(waiting.done());
    EXPECT_FALSE(waiting.result());
    EXPECT_EQ(gate.highWaterMark(), 1);
}

TEST_F(Gate, LooksAgainAfterPausesThatDoubleToHalfASecond) {
    HoldingProcess other(folder.path(), 3);
    TestLoop loop;
    const TaskHandle<bool> waiting = loop.start(gate.run(wasCancelled()));
    std::vector<Duration> pauses;
    for (int i = 0; i < 7; ++i) {
        loop.settle();
        const Instant next = loop.clock.nextDeadline().value();
        pauses.push_back(next - loop.clock.now());
        loop.clock.moveTo(next);
    }
    EXPECT_EQ(pauses,
              (std::vector<Duration>{milliseconds(20), milliseconds(40), milliseconds(80), milliseconds(160),
                                     milliseconds(320), milliseconds(500), milliseconds(500)}));
    waiting.cancel();
    loop.settle();
}

TEST_F(Gate, ACancelledWaiterGoesAheadWithoutASlot) {
    HoldingProcess other(folder.path(), 3);
    TestLoop loop;
    const TaskHandle<bool> waiting = loop.start(gate.run(wasCancelled()));
    loop.settle();
    waiting.cancel();
    loop.settle();
    EXPECT_TRUE(waiting.result());
    EXPECT_EQ(gate.highWaterMark(), 0);
}

TEST_F(Gate, ItsSlotsAreForAllGatesOnTheFolder) {
    TestLoop loop;
    MacWideGate second(3, folder.path());
    int running = 0;
    int mostRunning = 0;
    for (int i = 0; i < 12; ++i)
        loop.start((i % 2 == 0 ? gate : second).run(workFor(milliseconds(70), &running, &mostRunning)));
    loop.advance(std::chrono::minutes(1));
    EXPECT_EQ(loop.scope.live(), 0U);
    EXPECT_EQ(mostRunning, 3);

    EXPECT_THROW(loop.run(gate.run(failingWork())), std::runtime_error);
    const HoldingProcess allAreFree(folder.path(), 3);
    struct stat values{};
    ASSERT_EQ(stat((folder / "gate/slot-2.lock").c_str(), &values), 0);
    EXPECT_EQ(values.st_mode & 0777U, 0600U);
}

TEST(MacWideGate, FailsOpen) {
    const TemporaryFolder folder;
    folder.file("gate", "a file where the folder should be");
    for (const std::optional<std::filesystem::path>& place :
         {std::optional<std::filesystem::path>(), std::optional(folder.path())}) {
        TestLoop loop;
        MacWideGate gate(0, place);
        int running = 0;
        int mostRunning = 0;
        for (int i = 0; i < 5; ++i)
            loop.start(gate.run(workFor(std::chrono::seconds(1), &running, &mostRunning)));
        loop.advance(std::chrono::seconds(1));
        EXPECT_EQ(loop.scope.live(), 0U);
        EXPECT_EQ(mostRunning, 5);
        EXPECT_EQ(gate.highWaterMark(), 0);
    }
}

}  // namespace
}  // namespace vark
