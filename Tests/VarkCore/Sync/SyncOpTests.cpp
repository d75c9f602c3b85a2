#include "VarkCore/Sync/SyncOp.h"

#include <gtest/gtest.h>

#include "VarkCore/Foundation/JSON.h"

namespace vark {
namespace {

const Date noon = Date::fromSince1970(1'740'000'000);

TEST(SyncOp, IsNamedByItsPath) {
    struct Case {
        const char* path;
        const char* name;
        const char* folderPath;
        const char* folderName;
    };
    for (const Case& each : {
             Case{"Jobs/2026/clip.mov", "clip.mov", "Jobs/2026", "2026"},
             Case{"/Jobs//2026/", "2026", "Jobs", "Jobs"},
             Case{"clip.mov", "clip.mov", "", ""},
             Case{"//", "//", "", ""},
             Case{"", "", "", ""},
         }) {
        const SyncOp op(SyncOp::Kind::move, each.path, 7, noon);
        EXPECT_EQ(op.id, std::string("move:") + each.path);
        EXPECT_EQ(op.name(), each.name) << each.path;
        EXPECT_EQ(op.folderPath(), each.folderPath) << each.path;
        EXPECT_EQ(op.folderName(), each.folderName) << each.path;
    }
}

TEST(SyncOp, StandsInTheFileByItsKeysInTheirOrder) {
    SyncOp op(SyncOp::Kind::bin, "a", 7, noon + 0.9);
    const auto written = [&] {
        JSONWriter json;
        op.encode(json);
        return json.take();
    };
    EXPECT_EQ(written(), R"({"id":"bin:a","kind":"bin","path":"a","bytes":7,"done":0,"state":"sending",)"
                         R"("started":"2025-02-19T21:20:00Z","touched":"2025-02-19T21:20:00Z"})");
    op.started = op.touched = noon;
    op.state = SyncOp::State::problem;
    op.reason = "why";
    op.stoppedAt = noon + 60;
    EXPECT_TRUE(
        written().ends_with(R"("state":"problem","reason":"why","started":"2025-02-19T21:20:00Z",)"
                            R"("touched":"2025-02-19T21:20:00Z","stoppedAt":"2025-02-19T21:21:00Z"})"))
        << written();
    EXPECT_EQ(SyncOp::fromJSON(parseJSON(written())), op);
}

}  // namespace
}  // namespace vark
