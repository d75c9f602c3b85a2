#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Policies/LogCursor.h"

namespace vark::test {
namespace {

TEST(LogCursor, ReadsWhatIsNewUpToALimit) {
    TemporaryFolder folder;
    const std::string thousand = std::string(900, 'a') + std::string(100, 'b');
    const std::filesystem::path log = folder.file("transfer.log", thousand);
    const std::filesystem::path cut = folder.file("cut.log", "12\u00e934");
    struct Case {
        const char* name;
        std::filesystem::path log;
        std::uint64_t offset;
        std::int64_t cap;
        LogCursor::Unread unread;
    };
    const Case cases[] = {
        {"all of it", log, 0, 5000, {thousand, 1000}},
        {"nothing new", log, 1000, 5000, {"", 1000}},
        {"what is new", log, 999, 5000, {"b", 1000}},
        {"the newest part", log, 0, 100, {std::string(100, 'b'), 1000}},
        {"just as much as may be", log, 900, 100, {std::string(100, 'b'), 1000}},
        {"none, and goes on", log, 0, 0, {"", 1000}},
        {"none, and stays", log, 10, -1, {"", 10}},
        {"from the beginning after a roll", log, 5000, 5000, {thousand, 1000}},
        {"the newest part after a roll", log, 5000, 100, {std::string(100, 'b'), 1000}},
        {"no log", folder / "none.log", 77, 100, {"", 77}},
        {"no file", folder.path(), 77, 100, {"", 77}},
        {"half a character", cut, 3, 100, {"\uFFFD34", 6}},
    };
    for (const Case& one : cases)
        EXPECT_EQ(LogCursor::unread(one.log, one.offset, one.cap), one.unread) << one.name;
}

}  // namespace
}  // namespace vark::test
