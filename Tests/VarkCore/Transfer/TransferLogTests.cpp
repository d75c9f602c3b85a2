#include "VarkCore/Transfer/TransferLog.h"

#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

TEST(TransferLog, WritesALineForEachSentenceAndRollsOnceTheLimitIsPassed) {
    const TemporaryFolder folder;
    Date now = dateFromISO8601("2025-03-02T22:41:07Z").value();
    TransferLog log(folder / "Logs/transfer.log", 50, [&] { return now; }, Calendar("Australia/Melbourne"));
    log.write("Started");
    now = now + 55.9;
    log.write("Two\nlines, \xFF");
    log.write("after the limit");
    EXPECT_EQ(readWholeFile(folder / "Logs/transfer.previous.log"),
              "3 Mar 2025, 09:41:07  Started\n3 Mar 2025, 09:42:02  Two\nlines, \xEF\xBF\xBD\n");
    EXPECT_EQ(readWholeFile(folder / "Logs/transfer.log"), "3 Mar 2025, 09:42:02  after the limit\n");
}

}  // namespace
}  // namespace vark
