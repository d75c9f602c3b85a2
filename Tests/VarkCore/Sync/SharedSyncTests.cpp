#include "VarkCore/Sync/SharedSync.h"

#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Activity/ActivityHistory.h"
#include "VarkCore/Activity/SharedActivity.h"
#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Connection/SharedFile.h"

namespace vark {
namespace {

using Kind = SyncOp::Kind;
using State = SyncOp::State;

const Date noon = Date::fromSince1970(1'740'000'000);
constexpr const char* carriesOn = "Vark will carry on in a moment. Nothing to do.";
constexpr const char* notSentYet = "Vark hasn't been able to send this yet. Try again, or let us know.";

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
    SharedSync::progress("upload:b", 1, 1, shared, noon + 3);
    SharedSync::stop("upload:b", {State::problem, "unknown"}, shared, noon + 4);
    EXPECT_EQ(only(), op);

    SharedSync::progress(op.id, 40, 120, shared, noon + 5);
    SharedSync::progress(op.id, 50, 0, shared, noon + 6);
    op.done = 50;
    op.bytes = 120;
    op.touched = noon + 6;
    EXPECT_EQ(only(), op) << "an unknown size leaves the known one";

    SharedSync::stop(op.id, {State::waiting, "first"}, shared, noon + 10);
    SharedSync::stop(op.id, {State::problem, "again"}, shared, noon + 20);
    SharedSync::progress(op.id, 60, 0, shared, noon + 25);
    op.state = State::problem;
    op.reason = "again";
    op.done = 60;
    op.touched = noon + 25;
    op.stoppedAt = noon + 10;
    EXPECT_EQ(only(), op) << "the first stop counts, and bytes that go change no state";

    begin("Jobs/a", 7, noon + 30);
    op.state = State::sending;
    op.reason.reset();
    op.done = 0;
    op.touched = noon + 30;
    EXPECT_EQ(only(), op) << "started over with the larger size";

    begin("Jobs/b");
    SharedSync::forget({"upload:c", op.id}, shared);
    EXPECT_EQ(only().path, "Jobs/b");
}

TEST_F(SharedSyncTest, WhatLandedIsTold) {
    const SyncOp op = begin("a");
    ActivityEntry entry{
        .at = noon, .text = "Sent a", .kind = "put", .group = "put:", .many = "Sent %d files"};
    SharedSync::finish(op.id, entry, shared, noon);
    SharedSync::finish("upload:b", entry, shared, noon + 1);
    ASSERT_EQ(SharedActivity::read(shared).size(), 1U);
    EXPECT_EQ(SharedActivity::read(shared)[0].text, "Sent 2 files");
    EXPECT_EQ(ActivityHistory::read(shared, noon).size(), 2U);
}

TEST_F(SharedSyncTest, RecordsMoveOnByEveryStepThatHasComeDue) {
    struct Case {
        const char* what;
        State state;
        double touched;
        std::optional<double> stopped;
        std::optional<State> becomes;
        const char* reason;
        std::optional<double> stoppedThen;
    };
    const std::optional<double> never;
    const Case cases[] = {
        {"600 seconds", State::sending, -600, never, State::sending, "r", never},
        {"601 seconds", State::sending, -601, never, State::waiting, carriesOn, -601},
        {"stopped before", State::sending, -601, -700, State::waiting, carriesOn, -700},
        {"stopped long before", State::sending, -601, -3601, State::problem, notSentYet, -3601},
        {"5,000 seconds", State::sending, -5000, never, State::problem, notSentYet, -5000},
        {"over three days", State::sending, -259'201, never, std::nullopt, "", never},
        {"a waiting hour", State::waiting, 0, -3600, State::waiting, "r", -3600},
        {"over an hour", State::waiting, 0, -3601, State::problem, notSentYet, -3601},
        {"waiting without a stop", State::waiting, -9e6, never, State::waiting, "r", never},
        {"a problem of three days", State::problem, -259'200, -9e6, State::problem, "r", -9e6},
        {"a problem of more", State::problem, -259'201, 0, std::nullopt, "", never},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.what);
        SyncOp op(Kind::upload, "a", 1, noon + each.touched);
        op.state = each.state;
        op.reason = "r";
        if (each.stopped) op.stoppedAt = noon + *each.stopped;
        const std::optional<SyncOp> settled = SharedSync::settle(op, noon);
        ASSERT_EQ(settled.has_value(), each.becomes.has_value());
        if (!settled) continue;
        EXPECT_EQ(settled->state, *each.becomes);
        EXPECT_EQ(settled->reason, each.reason);
        EXPECT_EQ(settled->touched, op.touched);
        EXPECT_EQ(settled->stoppedAt, each.stoppedThen.transform([](double at) { return noon + at; }));
    }
}

TEST_F(SharedSyncTest, ReadingSettlesWithoutWriting) {
    begin("old");
    EXPECT_TRUE(read(noon + 259'201).empty());
    EXPECT_EQ(only(noon + 5000).state, State::problem);
    EXPECT_EQ(only(noon + 1).state, State::sending);
}

TEST_F(SharedSyncTest, TheOldestRecordsGoFirst) {
    std::vector<SyncOp> full;
    for (int number = 0; number < 500; ++number)
        full.emplace_back(Kind::upload, std::to_string(number), 1, noon);
    SharedFile::writeRecords(SharedFiles::sync(*shared), full, Durability::cached);
    begin("500");
    const std::vector<SyncOp> ops = read();
    ASSERT_EQ(ops.size(), 500U);
    EXPECT_EQ(ops.front().path, "1");
    EXPECT_EQ(ops.back().path, "500");
}

TEST_F(SharedSyncTest, ADamagedFileCountsAsEmptyAndIsReplaced) {
    for (const char* damage : {"", "[", "{}", "[1]", R"([{"id":"x"}])",
                               R"([{"id":"x","kind":"fly","path":"","bytes":0,"done":0,"state":"sending",)"
                               R"("started":"2025-02-19T21:20:00Z","touched":"2025-02-19T21:20:00Z"}])",
                               R"([{"id":"x","kind":"bin","path":"","bytes":0,"done":0,"state":"sending",)"
                               R"("started":"yesterday","touched":"2025-02-19T21:20:00Z"}])"}) {
        folder.file("Groups/test/sync.json", damage);
        EXPECT_TRUE(read().empty()) << damage;
        begin("a");
        EXPECT_EQ(only().path, "a") << damage;
    }
    for (const std::filesystem::path& file : {SharedFiles::sync(*shared), SharedFiles::syncLock(*shared)})
        EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600)) << file;
    SharedSync::clear(shared);
    EXPECT_TRUE(read().empty());
}

TEST_F(SharedSyncTest, NeverFailsWithoutAFolderOrALock) {
    folder.file("Groups", "a file where the folder should be");
    for (const SharedStore::Folder& place : {SharedStore::Folder(), shared}) {
        SharedSync::begin(SyncOp(Kind::upload, "a", 1, noon), place);
        SharedSync::finish("upload:a", ActivityEntry{}, place, noon);
        SharedSync::clear(place);
        EXPECT_TRUE(SharedSync::read(place, noon).empty());
    }
    const TemporaryFolder other;
    std::filesystem::create_directories(SharedFiles::syncLock(other.path()));
    SharedSync::begin(SyncOp(Kind::upload, "a", 1, noon), other.path());
    EXPECT_FALSE(exists(SharedFiles::sync(other.path())));
}

}  // namespace
}  // namespace vark
