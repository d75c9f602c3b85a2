#include "VarkCore/Sync/SyncSummary.h"

#include <gtest/gtest.h>

namespace vark {
namespace {

using Kind = SyncOp::Kind;
using State = SyncOp::State;

const Date noon = Date::fromSince1970(1'740'000'000);

SyncOp op(State state, std::string path, double touched, std::optional<std::string> reason = std::nullopt) {
    SyncOp made(Kind::upload, std::move(path), 100, noon + touched);
    made.state = state;
    made.reason = std::move(reason);
    return made;
}

SyncOp sending(Kind kind, std::string path, double touched, std::int64_t done = 0) {
    SyncOp made(kind, std::move(path), 100, noon + touched);
    made.done = done;
    return made;
}

std::string paths(const std::vector<SyncOp>& ops) {
    std::string all;
    for (const SyncOp& each : ops)
        all += each.path + " ";
    return all;
}

TEST(SyncSummary, SortsRecordsByWhatBecomesOfThem) {
    const SyncSummary summary({op(State::problem, "p1", 1), op(State::waiting, "w1", 9),
                               op(State::sending, "s1", 0), op(State::problem, "p2", 2),
                               op(State::problem, "p3", 1), op(State::waiting, "w2", 3),
                               op(State::sending, "s2", 5)});
    EXPECT_EQ(paths(summary.sending), "s1 s2 ");
    EXPECT_EQ(paths(summary.waiting), "w1 w2 ");
    EXPECT_EQ(paths(summary.problems), "p2 p1 p3 ");
}

TEST(SyncSummary, CountsAsMovingWhatHasSentSomethingNotLongAgo) {
    const SyncSummary summary({sending(Kind::upload, "nothing", 120, 0), sending(Kind::upload, "late", 0, 5),
                               sending(Kind::upload, "moves", 0.5, 5)});
    EXPECT_EQ(paths(summary.moving(noon + 120)), "moves ");
}

TEST(SyncSummary, ShowsTheUploadThatWasTouchedLast) {
    struct Case {
        const char* what;
        std::vector<SyncOp> ops;
        const char* current;
    };
    const Case cases[] = {
        {"an upload before a newer rename",
         {sending(Kind::rename, "r", 9), sending(Kind::upload, "a", 1), sending(Kind::upload, "b", 2)},
         "b"},
        {"the first of two", {sending(Kind::upload, "a", 1), sending(Kind::upload, "b", 1)}, "a"},
        {"the first of others", {sending(Kind::bin, "x", 1), sending(Kind::move, "y", 2)}, "x"},
    };
    for (const Case& each : cases)
        EXPECT_EQ(SyncSummary(each.ops).current().value().path, each.current) << each.what;
    EXPECT_FALSE(SyncSummary({op(State::waiting, "w", 1)}).current());
}

TEST(SyncSummary, CountsWhatHasGoneWhenItOvertakesTheSize) {
    const SyncSummary summary(
        {sending(Kind::upload, "a", 0, 30), sending(Kind::upload, "b", 0, 150), op(State::waiting, "w", 0)});
    EXPECT_EQ(summary.bytesDone(), 180);
    EXPECT_EQ(summary.bytesTotal(), 250);

    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(
        SyncSummary({sending(Kind::upload, "a", 0, most), sending(Kind::upload, "b", 0, most)}).bytesTotal(),
        most);
}

TEST(SyncSummary, TellsWhatWaitsByTheNameOfItsFolder) {
    const SyncSummary summary({op(State::waiting, "One/Edits/a", 1, "old"), op(State::waiting, "top", 2),
                               op(State::waiting, "Two/Edits/b", 3, "new"),
                               op(State::waiting, "Raw/c", 2, "raw"), op(State::sending, "Raw/d", 9)});
    using Group = SyncSummary::WaitingGroup;
    EXPECT_EQ(summary.waitingGroups(),
              (std::vector<Group>{{"Edits", 2, "new"},
                                  {"", 1, "Vark will carry on in a moment. Nothing to do."},
                                  {"Raw", 1, "raw"}}));
}

}  // namespace
}  // namespace vark
