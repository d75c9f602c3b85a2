#include <gtest/gtest.h>

#include <stdexcept>

#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Upload/MacWideGate.h"
#include "VarkCore/Upload/UploadGate.h"

namespace vark {
namespace {

Task<bool> workFor(Duration duration) {
    co_await sleepFor(duration);
    co_return true;
}

Task<bool> failingWork() {
    throw std::runtime_error("the work failed");
    co_return false;
}

TEST(UploadGate, LetsInNoMoreThanItsSlotsAndGetsThemBack) {
    test::TestLoop loop;
    UploadGate gate(2);
    EXPECT_THROW(loop.run(gate.run(failingWork())), std::runtime_error);
    for (int i = 0; i < 10; ++i)
        loop.start(gate.run(workFor(std::chrono::seconds(i % 3))));
    loop.advance(std::chrono::minutes(1));
    EXPECT_EQ(loop.scope.live(), 0U);
    EXPECT_EQ(gate.highWaterMark(), 2);
}

TEST(MacWideGate, WaitsForASlotOfAllProcessesAndFailsOpen) {
    const TemporaryFolder folder;
    test::TestLoop loop;
    MacWideGate gate(1, folder.path());
    std::optional<FileLock> slotOfAnother = FileLock::tryExclusive(folder / "gate/slot-0.lock");
    const TaskHandle<bool> waiting = loop.start(gate.run(workFor({})));
    const TaskHandle<bool> impatient = loop.start(gate.run(workFor({})));
    loop.advance(std::chrono::seconds(30));
    EXPECT_FALSE(waiting.done());
    impatient.cancel();
    loop.settle();
    EXPECT_TRUE(impatient.done()) << "it goes ahead without a slot, to meet its cancellation";
    slotOfAnother.reset();
    loop.advance(std::chrono::milliseconds(500));
    EXPECT_TRUE(waiting.done());
    EXPECT_EQ(gate.highWaterMark(), 1);

    MacWideGate open(1, folder.file("a file") / "below it");
    EXPECT_TRUE(loop.run(open.run(workFor({}))));
    EXPECT_EQ(open.highWaterMark(), 0);
}

}  // namespace
}  // namespace vark
