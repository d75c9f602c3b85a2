#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "VarkCore/Errors/VarkAPIError.h"
#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Sync/SyncProblem.h"
#include "VarkCore/Sync/SyncSummary.h"

namespace vark {
namespace {

using Kind = SyncOp::Kind;
using State = SyncOp::State;
using testing::ElementsAre;
using testing::Field;
using Error = VarkAPIError;

const Date noon = Date::fromSince1970(1'740'000'000);

SyncOp op(State state, std::string path, double touched, std::int64_t done = 0, Kind kind = Kind::upload) {
    SyncOp made(kind, std::move(path), 100, noon + touched);
    made.state = state;
    made.done = done;
    return made;
}

std::string paths(const std::vector<SyncOp>& ops) {
    std::string all;
    for (const SyncOp& each : ops)
        all += each.path + " ";
    return all;
}

TEST(SyncSummary, ShowsWhatBecomesOfRecordsAndHowMuchHasGone) {
    const std::int64_t most = std::numeric_limits<std::int64_t>::max();
    const SyncSummary summary({op(State::sending, "rename", 130, 0, Kind::rename),
                               op(State::sending, "late", 0, 150), op(State::sending, "moves", 0.5, 30),
                               op(State::waiting, "w", 200), op(State::problem, "p1", 1),
                               op(State::problem, "p2", 2)});
    EXPECT_EQ(paths(summary.sending), "rename late moves ");
    EXPECT_EQ(paths(summary.waiting), "w ");
    EXPECT_EQ(paths(summary.problems), "p2 p1 ") << "the newest first";
    EXPECT_EQ(summary.current().value().path, "moves") << "the upload that was touched last";
    EXPECT_EQ(paths(summary.moving(noon + 120)), "moves ");
    EXPECT_EQ(summary.bytesDone(), 180);
    EXPECT_EQ(summary.bytesTotal(), 350) << "what has gone counts when it overtakes the size";
    EXPECT_EQ(SyncSummary({op(State::sending, "a", 0, most), op(State::sending, "b", 0, most)}).bytesTotal(),
              most);
}

TEST(SyncSummary, TellsWhatWaitsByTheNameOfItsFolder) {
    const SyncSummary summary({op(State::waiting, "One/Edits/a", 1), op(State::waiting, "top", 2),
                               op(State::waiting, "Two/Edits/b", 3), op(State::sending, "Raw/d", 9)});
    using Group = SyncSummary::WaitingGroup;
    EXPECT_THAT(summary.waitingGroups(),
                ElementsAre(Field(&Group::folder, "Edits"), Field(&Group::folder, "")));
    EXPECT_EQ(summary.waitingGroups()[0].count, 2);
}

template <class Thrown>
std::shared_ptr<std::exception> made(Thrown error) {
    return std::make_shared<Thrown>(std::move(error));
}

TEST(SyncProblem, TellsWhetherAPersonHasToDoSomethingAndWhat) {
    struct Case {
        std::shared_ptr<std::exception> error;
        State state;
        const char* words;
    };
    // clang-format off
    const Case cases[] = {
        {made(HTTPError(HTTPError::connectionLost, "")), State::waiting, "for the internet"},
        {made(HTTPError(HTTPError::cannotConnect, "")), State::waiting, "carry on in a moment"},
        {made(Error::unauthorized("Revoked.", "VARK-410")), State::problem, "sign in again"},
        {made(Error::nameTaken("taken")), State::problem, "already in Edits"},
        {made(Error::server(400, "Bad NAME.")), State::problem, "Names can't end in"},
        {made(Error::server(400)), State::problem, "can't take this as it is"},
        {made(Error::server(403, "no")), State::problem, "Ask an admin at Acme"},
        {made(Error::server(404)), State::problem, "moved or binned"},
        {made(Error::server(413)), State::problem, "vark is full"},
        {made(Error::server(500, "name")), State::waiting, "carry on in a moment"},
        {made(Error::transport("You are OFFLINE.")), State::waiting, "for the internet"},
        {made(std::runtime_error("offline")), State::waiting, "carry on in a moment"},
    };
    // clang-format on
    const SyncOp op(SyncOp::Kind::upload, "Jobs/Edits/clip.mov", 1, Date{});
    for (const Case& each : cases) {
        const SyncProblem problem = SyncProblem::from(*each.error, op, "Acme");
        EXPECT_EQ(problem.state, each.state) << each.words;
        EXPECT_THAT(problem.reason, testing::HasSubstr(each.words));
    }
    const SyncOp atTheTop(SyncOp::Kind::upload, "/clip.mov", 1, Date{});
    EXPECT_THAT(SyncProblem::from(Error::nameTaken(), atTheTop, "").reason,
                testing::HasSubstr("in this folder"));
}

TEST(SyncOp, IsNamedByItsPathAndStandsInTheFileByItsKeysInTheirOrder) {
    SyncOp op(Kind::bin, "/Jobs//2026/a", 7, noon);
    EXPECT_EQ(op.name(), "a");
    EXPECT_EQ(op.folderPath(), "Jobs/2026");
    EXPECT_EQ(op.folderName(), "2026");
    op.state = State::problem;
    op.reason = "why";
    op.stoppedAt = noon + 60;
    JSONWriter json;
    op.encode(json);
    EXPECT_EQ(json.text(),
              R"({"id":"bin:/Jobs//2026/a","kind":"bin","path":"/Jobs//2026/a","bytes":7,"done":0,)"
              R"("state":"problem","reason":"why","started":"2025-02-19T21:20:00Z",)"
              R"("touched":"2025-02-19T21:20:00Z","stoppedAt":"2025-02-19T21:21:00Z"})");
    EXPECT_EQ(SyncOp::fromJSON(parseJSON(json.text())), op);
}

}  // namespace
}  // namespace vark
