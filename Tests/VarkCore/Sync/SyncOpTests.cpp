#include <gtest/gtest.h>

#include "Tests/Support/Noon.h"
#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Sync/SyncOp.h"

namespace vark {
namespace {

using Kind = SyncOp::Kind;
using State = SyncOp::State;

using test::noon;

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
