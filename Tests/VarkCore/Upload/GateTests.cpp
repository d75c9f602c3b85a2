#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Upload/MacWideGate.h"

namespace vark {
namespace {

Task<bool> workFor(Duration duration) {
    co_await sleepFor(duration);
    co_return true;
}

TEST(MacWideGate, WaitsForASlotOfAllProcessesAndFailsOpen) {
    const TemporaryFolder folder;
    test::TestLoop loop;
    MacWideGate gate(1, folder.path());
    std::optional<FileLock> slotOfAnother = FileLock::tryExclusive(folder / "gate/slot-0.lock");
    const TaskHandle<bool> waiting = loop.start(gate.run(workFor({})));
    loop.advance(std::chrono::seconds(30));
    EXPECT_FALSE(waiting.done());
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
