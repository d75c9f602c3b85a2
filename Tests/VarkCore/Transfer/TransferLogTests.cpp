#include "VarkCore/Transfer/TransferLog.h"

#include <gtest/gtest.h>

#include <thread>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

class TransferLogTest : public testing::Test {
  protected:
    TransferLog log(std::int64_t maxBytes = 1'000'000) const {
        return {path, maxBytes, [this] { return now; }, Calendar("Australia/Melbourne")};
    }

    TemporaryFolder folder;
    std::filesystem::path path = folder / "Logs/Vark/transfer.log";
    Date now = dateFromISO8601("2025-03-02T22:41:07Z").value();
};

TEST_F(TransferLogTest, WritesALineForEachSentenceAndRollsOnceTheLimitIsPassed) {
    TransferLog log = this->log(50);
    log.write("Started");
    now = now + 55.9;
    log.write("Two\nlines, \xFF");
    log.write("after the limit");
    EXPECT_EQ(readWholeFile(folder / "Logs/Vark/transfer.previous.log"),
              "3 Mar 2025, 09:41:07  Started\n3 Mar 2025, 09:42:02  Two\nlines, \xEF\xBF\xBD\n");
    EXPECT_EQ(readWholeFile(path), "3 Mar 2025, 09:42:02  after the limit\n");
}

TEST_F(TransferLogTest, LinesOfManyThreadsDoNotMix) {
    TransferLog log = this->log();
    {
        std::vector<std::jthread> threads;
        for (int index = 0; index < 4; ++index) {
            threads.emplace_back([&] {
                for (int line = 0; line < 250; ++line)
                    log.write("a sentence");
            });
        }
    }
    std::string expected;
    for (int line = 0; line < 1000; ++line)
        expected += "3 Mar 2025, 09:41:07  a sentence\n";
    EXPECT_EQ(readWholeFile(path), expected);
}

}  // namespace
}  // namespace vark
