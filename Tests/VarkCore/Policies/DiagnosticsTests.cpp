#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Policies/Diagnostics.h"

namespace vark::test {
namespace {

using testing::ElementsAre;
using testing::Pair;

TEST(Diagnostics, CarriesOnlyWhatIsNewInEachLogAndInWholeLinesWhereItCuts) {
    TemporaryFolder folder;
    const std::map<std::string, std::filesystem::path> logs{
        {"extensions", folder / "none.log"}, {"transfer", folder.file("transfer.log", "one\ntwo\nthree\n")}};
    Diagnostics::NewInLogs news = Diagnostics::newIn(logs, {}, 100);
    EXPECT_THAT(news.logs, ElementsAre(Pair("transfer", "one\ntwo\nthree\n")));
    EXPECT_THAT(Diagnostics::newIn(logs, {}, 8).logs, ElementsAre(Pair("transfer", "three\n")));
    EXPECT_TRUE(Diagnostics::newIn(logs, news.next, 100).logs.empty());

    folder.file("cursors.json", Diagnostics::encodeCursors(news.next));
    EXPECT_EQ(Diagnostics::encodeCursors(news.next),
              R"({"extensions":{"offset":0},"transfer":{"offset":14}})");
    const LogCursors read = Diagnostics::readCursors(folder / "cursors.json");
    folder.file("transfer.log", "one\ntwo\nthree\nfour\n");
    EXPECT_THAT(Diagnostics::newIn(logs, read, 100).logs, ElementsAre(Pair("transfer", "four\n")));
    for (const char* damaged : {"", "[]", "{\"transfer\":{}}", "{\"transfer\":7}"}) {
        folder.file("cursors.json", damaged);
        EXPECT_EQ(Diagnostics::readCursors(folder / "cursors.json"), LogCursors{}) << damaged;
    }
}

TEST(Diagnostics, CountsTheQueueAndWhatIsOwedAndNamesEachReasonOnce) {
    TransferJob job;
    const auto add = [&job](ItemState state, const char* error) {
        TransferItem item;
        item.state = state;
        if (error != nullptr) item.error = error;
        job.items.push_back(std::move(item));
    };
    add(ItemState::queued, nullptr);
    add(ItemState::uploading, nullptr);
    add(ItemState::verified, nullptr);
    add(ItemState::skipped, "A different file is there.");
    add(ItemState::conflict, "A different file is there.");
    add(ItemState::failed, "No room.");
    add(ItemState::failed, "No room.");
    add(ItemState::failed, "Too large.");
    std::vector<SyncOp> ops(3, SyncOp(SyncOp::Kind::bin, "a", 0, Date{}));
    ops[0].state = SyncOp::State::waiting;
    ops[1].state = ops[2].state = SyncOp::State::problem;
    ops[1].reason = "No room.";
    DiagnosticsReport::Snapshot snapshot;
    Diagnostics::addQueue(snapshot, job);
    Diagnostics::addOwed(snapshot, SyncSummary(ops));
    EXPECT_EQ(snapshot.queued, 2);
    EXPECT_EQ(snapshot.waiting, 2);
    EXPECT_EQ(snapshot.problems, 5);
    EXPECT_THAT(snapshot.problemReasons, ElementsAre("No room.", "Too large."));
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

}  // namespace
}  // namespace vark::test
