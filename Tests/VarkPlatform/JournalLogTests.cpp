#include "VarkPlatform/Linux/JournalLog.h"

#include <gtest/gtest.h>

#include "Tests/Support/Process.h"
#include "Tests/Support/TemporaryFolder.h"

namespace vark::test {
namespace {

TEST(JournalLog, SendsEachNoteAsOneDatagramThatNoTextCanForgeAndNeverWaits) {
    const TemporaryFolder folder;
    const std::string socket = folder / "socket";
    JournalLog log(socket);
    log.note("transfer", "before there is a journal");
    Process journal({.program = "/usr/bin/socat", .arguments = {"-u", "UNIX-RECV:" + socket, "STDOUT"}});
    ASSERT_TRUE(journal.untilThere(socket));
    log.note("transfer", "two\nPRIORITY=0\nlines");
    // A text that could be taken for another field has its length before it.
    const std::string length("\x14\0\0\0\0\0\0\0", 8);
    EXPECT_TRUE(journal.untilWritten("MESSAGE\n" + length + "two\nPRIORITY=0\nlines\n")) << journal.output();
    journal.signal(SIGSTOP);
    for (int count = 0; count < 10'000; ++count)
        log.note("transfer", "nobody reads this");
}

}  // namespace
}  // namespace vark::test
