#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

class ChangingFile : public EndToEndTest {};

TEST_F(ChangingFile, OtherBytesThanWereHashedAreNotedByTheVarkAndFailTheFile) {
    const SampleFile take = file("Take.mov", 2 * chunkSize);
    // When its hash is known and nothing of it has been sent: the next call comes after a while.
    fault(R"({"kind": "status", "status": 500, "path": "/api/upload/begin", "count": 1})");
    Process sending = startSend(take);
    ASSERT_TRUE(untilAnswered("POST", "/api/upload/begin", 500));
    writeSample(vark.home(), take.relativePath, take.size, 99);
    expectExit(sending.finish(), 1);
    EXPECT_THAT(vark.diary(), testing::HasSubstr("Was the file changed while it was sent?"));
    EXPECT_TRUE(box.files().empty());
}

}  // namespace
}  // namespace vark::test
