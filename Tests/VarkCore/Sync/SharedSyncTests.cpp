#include "Tests/Support/Noon.h"
#include "VarkCore/Sync/SharedSync.h"

#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Activity/SharedActivity.h"

namespace vark {
namespace {

using Kind = SyncOp::Kind;
using State = SyncOp::State;

using test::noon;
class SharedSyncTest : public testing::Test {
  protected:
    SyncOp begin(std::string path, std::int64_t bytes = 100, Date now = noon) const {
        SyncOp op(Kind::upload, std::move(path), bytes, now);
        SharedSync::begin(op, shared);
        return op;
    }
    std::vector<SyncOp> read(Date now = noon) const { return SharedSync::read(shared, now); }
    SyncOp only(Date now = noon) const {
        std::vector<SyncOp> ops = read(now);
        EXPECT_EQ(ops.size(), 1U);
        return ops.empty() ? SyncOp() : ops.front();
    }

    TemporaryFolder folder;
    SharedStore::Folder shared = folder / "Groups/test";
};

TEST_F(SharedSyncTest, AChangeIsBegunReportedStoppedAndStartedOver) {
    SyncOp op = begin("Jobs/a");
    SharedSync::progress(op.id, 40, 120, shared, noon + 5);
    SharedSync::progress(op.id, 50, 0, shared, noon + 6);
    op.done = 50;
    op.bytes = 120;
    op.touched = noon + 6;
    EXPECT_EQ(only(), op) << "an unknown size leaves the known one";

    SharedSync::stop(op.id, {State::waiting, "first"}, shared, noon + 10);
    SharedSync::stop(op.id, {State::problem, "again"}, shared, noon + 20);
    op.state = State::problem;
    op.reason = "again";
    op.touched = only().touched;
    op.stoppedAt = noon + 10;
    EXPECT_EQ(only(), op) << "the first stop counts";

    begin("Jobs/a", 7, noon + 30);
    op.state = State::sending;
    op.reason.reset();
    op.done = 0;
    op.touched = noon + 30;
    EXPECT_EQ(only(), op) << "started over with the larger size";
    SharedSync::finish(op.id, ActivityEntry{.at = noon, .text = "Sent a", .kind = "put"}, shared, noon);
    EXPECT_TRUE(read().empty());
    EXPECT_EQ(SharedActivity::read(shared).at(0).text, "Sent a");
}

TEST_F(SharedSyncTest, RecordsMoveOnByEveryStepThatHasComeDue) {
    struct Case {
        const char* what;
        State state;
        double touched;
        std::optional<double> stopped;
        std::optional<State> becomes;
    };
    // clang-format off
    const Case cases[] = {
        {"601 seconds", State::sending, -601, {}, State::waiting},
        {"stopped long before", State::sending, -601, -3601, State::problem},
        {"over three days", State::sending, -259'201, {}, {}},
        {"over an hour", State::waiting, 0, -3601, State::problem},
        {"a problem of more", State::problem, -259'201, 0, {}},
    };
    // clang-format on
    for (const Case& each : cases) {
        SCOPED_TRACE(each.what);
        SyncOp op(Kind::upload, "a", 1, noon + each.touched);
        op.state = each.state;
        if (each.stopped) op.stoppedAt = noon + *each.stopped;
        const std::optional<SyncOp> settled = SharedSync::settle(op, noon);
        EXPECT_EQ(settled ? std::optional(settled->state) : std::nullopt, each.becomes);
        if (settled && settled->state != each.state) EXPECT_TRUE(settled->reason && settled->stoppedAt);
    }
    begin("old");
    EXPECT_EQ(only(noon + 5000).state, State::problem);
    EXPECT_EQ(only(noon + 1).state, State::sending) << "reading writes nothing";
}

}  // namespace
}  // namespace vark
