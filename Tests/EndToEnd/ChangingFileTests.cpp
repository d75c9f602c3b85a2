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
    EXPECT_EQ(sending.wait(), exitCode(1)) << sending.output() << vark.diary();
    EXPECT_THAT(vark.diary(), HasSubstr("Was the file changed while it was sent?"));
    EXPECT_TRUE(box.files().empty());
}

TEST_F(BetweenHashAndSending, AShorterFileIsHashedAgainAndLandsAsItIs) {
    Process sending = startUpToTheFirstCall();
    fs::rename(pathOf(take), vark.home() / "kept");
    vark.write(take.relativePath, "short");
    EXPECT_EQ(sending.wait(), exitCode(0)) << sending.output() << vark.diary();
    EXPECT_THAT(box.files(), testing::ElementsAre(testing::Field(&HeldFile::size, 5)));
}

TEST_F(BetweenHashAndSending, AMissingFileFailsAtOnceAndLandsWhenItIsBack) {
    Process sending = startUpToTheFirstCall();
    fs::rename(pathOf(take), vark.home() / "kept");
    EXPECT_EQ(sending.wait(), exitCode(1)) << sending.output() << vark.diary();
    EXPECT_THAT(vark.diary(), HasSubstr("Failed: Take.mov: The file is no longer where it was."));
    fs::rename(vark.home() / "kept", pathOf(take));
    vark.run({"retry"});
    EXPECT_EQ(vark.run({"send"}).exit, exitCode(0)) << vark.diary();
    expectHeld(take);
}

class BeforeHashing : public EndToEndTest {};

TEST_F(BeforeHashing, AFileThatIsGoneFailsAndTheOthersLand) {
    std::vector<SampleFile> files;
    for (int i = 0; i < 6; ++i)
        files.push_back(file("Shoot/Take " + std::to_string(i), 1000));
    // Four files are taken up and the vark refuses them: the fifth and the sixth have no hash yet.
    box.control("POST", "/control/sign-out");
    Process sending = vark.start({"send", (vark.home() / "Shoot").string()});
    ASSERT_TRUE(untilDiary("the queue is paused while that is checked", sending));
    sending.signal(SIGINT);
    ASSERT_EQ(sending.wait(), exitCode(130)) << sending.errors();
    ASSERT_FALSE(vark.savedItem("Shoot/Take 5")->contains("sha256"));

    fs::remove(pathOf(files[5]));
    box.control("POST", "/control/sign-in");
    Finished sent = vark.run({"send"});
    expectExit(sent, 1);
    EXPECT_THAT(sent.output + sent.errors, HasSubstr("The file is no longer where it was."));
    files.pop_back();
    for (const SampleFile& file : files)
        expectHeld(file);
}

}  // namespace
}  // namespace vark::test
