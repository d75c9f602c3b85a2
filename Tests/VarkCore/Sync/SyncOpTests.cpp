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
    SyncOp op(SyncOp::Kind::bin, "a", 7, noon);
    op.state = SyncOp::State::problem;
    op.reason = "why";
    op.stoppedAt = noon + 60.9;
    JSONWriter json;
    op.encode(json);
    EXPECT_EQ(json.text(), R"({"id":"bin:a","kind":"bin","path":"a","bytes":7,"done":0,"state":"problem",)"
                           R"("reason":"why","started":"2025-02-19T21:20:00Z",)"
                           R"("touched":"2025-02-19T21:20:00Z","stoppedAt":"2025-02-19T21:21:00Z"})");
    op.stoppedAt = noon + 60;
    EXPECT_EQ(SyncOp::fromJSON(parseJSON(json.text())), op);
}

}  // namespace
}  // namespace vark
