#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

/// A file to which something happens when its hash is known and nothing of it has been sent: the first call
/// is answered with an error, and the next one comes after a while.
class BetweenHashAndSending : public EndToEndTest {
  protected:
    Process startUpToTheFirstCall() {
        fault(R"({"kind": "status", "status": 500, "path": "/api/upload/begin", "count": 1})");
        Process sending = startSend(take);
        EXPECT_TRUE(untilAnswered("POST", "/api/upload/begin", 500));
        return sending;
    }

    SampleFile take = file("Take.mov", 2 * chunkSize);
};

TEST_F(BetweenHashAndSending, OtherBytesAreNotedByTheVarkAndFailTheFile) {
    Process sending = startUpToTheFirstCall();
    writeSample(vark.home(), take.relativePath, take.size, 99);
    expectExit(sending.finish(), 1);
    EXPECT_THAT(vark.diary(), HasSubstr("Was the file changed while it was sent?"));
    EXPECT_TRUE(box.files().empty());
}

TEST_F(BetweenHashAndSending, AShorterFileIsHashedAgainAndLandsAsItIs) {
    Process sending = startUpToTheFirstCall();
    fs::rename(pathOf(take), pathOf("kept"));
    vark.write(take.relativePath, "short");
    expectExit(sending.finish(), 0);
    EXPECT_THAT(box.files(), testing::ElementsAre(testing::Field(&HeldFile::size, 5)));
}

TEST_F(BetweenHashAndSending, AMissingFileFailsAtOnceAndLandsWhenItIsBack) {
    Process sending = startUpToTheFirstCall();
    fs::rename(pathOf(take), pathOf("kept"));
    expectExit(sending.finish(), 1);
    EXPECT_THAT(vark.diary(), HasSubstr("Failed: Take.mov: The file is no longer where it was."));
    fs::rename(pathOf("kept"), pathOf(take));
    vark.run({"retry"});
    expectExit(vark.run({"send"}), 0);
    expectHeld(take);
}

class BeforeHashing : public EndToEndTest {};

TEST_F(BeforeHashing, AFileThatIsGoneFailsAndTheOthersLand) {
    std::vector<SampleFile> files = shoot(6);
    // Four files are taken up and the vark refuses them: the fifth and the sixth have no hash yet.
    box.control("POST", "/control/sign-out");
    Process sending = vark.start({"send", pathOf("Shoot")});
    ASSERT_TRUE(vark.untilDiary("the queue is paused while that is checked", sending));
    sending.signal(SIGINT);
    expectExit(sending.finish(), 130);

    fs::remove(pathOf(files.back()));
    files.pop_back();
    box.control("POST", "/control/sign-in");
    const Finished sent = vark.run({"send"});
    expectExit(sent, 1);
    EXPECT_THAT(sent.output + sent.errors, HasSubstr("The file is no longer where it was."));
    expectHeld(files);
}

}  // namespace
}  // namespace vark::test
