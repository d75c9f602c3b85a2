#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Policies/Diagnostics.h"
#include "VarkCore/Policies/LogCursor.h"

namespace vark::test {
namespace {

using testing::ElementsAre;
using testing::Pair;

TEST(Diagnostics, CarriesOnlyWhatIsNewInEachLogAndInWholeLinesWhereItCuts) {
    TemporaryFolder folder;
    const std::map<std::string, std::filesystem::path> logs{{"extensions", folder / "none.log"},
                                                            {"transfer", folder.file("log", "one\ntwo\n")}};
    const Diagnostics::NewInLogs news = Diagnostics::newIn(logs, {}, 100);
    EXPECT_THAT(news.logs, ElementsAre(Pair("transfer", "one\ntwo\n")));
    EXPECT_THAT(Diagnostics::newIn(logs, {}, 6).logs, ElementsAre(Pair("transfer", "two\n")));
    folder.file("cursors.json", Diagnostics::encodeCursors(news.next));
    const LogCursors read = Diagnostics::readCursors(folder / "cursors.json");
    EXPECT_EQ(read, news.next);
    folder.file("log", "one\ntwo\nthree\n");
    EXPECT_THAT(Diagnostics::newIn(logs, read, 100).logs, ElementsAre(Pair("transfer", "three\n")));
    folder.file("cursors.json", "{\"transfer\":7}");
    EXPECT_EQ(Diagnostics::readCursors(folder / "cursors.json"), LogCursors{});
}

TEST(Diagnostics, CountsTheQueueAndWhatIsOwedAndNamesEachReasonOnce) {
    TransferJob job;
    job.items.resize(5);
    job.items[1].state = ItemState::uploading;
    job.items[2].state = ItemState::verified;
    for (const std::size_t place : {3U, 4U}) {
        job.items[place].state = ItemState::failed;
        job.items[place].error = "No room.";
    }
    std::vector<SyncOp> ops(2, SyncOp(SyncOp::Kind::bin, "a", 0, Date{}));
    ops[0].state = SyncOp::State::waiting;
    ops[1].state = SyncOp::State::problem;
    ops[1].reason = "No room.";
    DiagnosticsReport::Snapshot snapshot;
    Diagnostics::addQueue(snapshot, job);
    Diagnostics::addOwed(snapshot, SyncSummary(ops));
    EXPECT_EQ(snapshot.queued, 2);
    EXPECT_EQ(snapshot.waiting, 1);
    EXPECT_EQ(snapshot.problems, 3);
    EXPECT_THAT(snapshot.problemReasons, ElementsAre("No room."));
}

TEST(Diagnostics, HoldsNoToken) {
    DiagnosticsReport report;
    report.logs["transfer"] = "Refused: abcabc is unknown (abc)";
    report.snapshot.problemReasons = {"abc"};
    const DiagnosticsReport clean = Diagnostics::without("abc", report);
    EXPECT_EQ(clean.logs.at("transfer"), "Refused: [token][token] is unknown ([token])");
    EXPECT_THAT(clean.snapshot.problemReasons, ElementsAre("[token]"));
    EXPECT_EQ(Diagnostics::without("", report), report);
}

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
        {"what is new", log, 999, 5000, {"b", 1000}},
        {"the newest part", log, 0, 100, {std::string(100, 'b'), 1000}},
        {"from the beginning after a roll", log, 5000, 5000, {thousand, 1000}},
        {"no log", folder / "none.log", 77, 100, {"", 77}},
        {"half a character", cut, 3, 100, {"\uFFFD34", 6}},
    };
    for (const Case& one : cases)
        EXPECT_EQ(LogCursor::unread(one.log, one.offset, one.cap), one.unread) << one.name;
}

}  // namespace
}  // namespace vark::test
