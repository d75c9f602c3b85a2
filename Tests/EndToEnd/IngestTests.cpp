#include <fmt/format.h>

#include "Tests/EndToEnd/EndToEndTest.h"
#include "Tests/Support/TestCard.h"

namespace vark::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

namespace json = boost::json;

/// A person with a card, and a box that holds back what it is told to hold back: so a test decides how far an
/// ingest gets, however slow the machine is.
class Ingest : public EndToEndTest {
  protected:
    void SetUp() override {
        EndToEndTest::SetUp();
        card = TestCard::make("ALPHA");
        if (!card) GTEST_SKIP() << TestCard::whySkipped;
        vark.moveTo({.prefix = card->mounts().prefix()});
    }

    void fill(int count) {
        for (int n = 0; n < count; ++n)
            files.push_back(writeSample(card->seen(),
                                        fmt::format("DCIM/{}EOS/IMG_{:04}.JPG", 100 + n / 100, n),
                                        3000 + 17 * n, static_cast<std::uint64_t>(n) + 1));
    }
    /// So many more files land, and the next ones get no answer.
    void letLand(int count) {
        box.clearFaults();
        fault(fmt::format(
            R"({{"kind": "stall", "path": "/api/upload/", "path_contains": "/finish", "skip": {}}})", count));
    }
    bool untilLanded(int count) { return untilAnswered("POST", "/finish", 200, count); }
    json::array ingests() const { return box.control("GET", "/control/ingests").at("ingests").as_array(); }

    const char* waiting = "Plug ALPHA back in to carry on. Nothing is lost.";
    std::unique_ptr<TestCard> card;
    std::vector<SampleFile> files;
};

TEST_F(Ingest, SurvivesThePullingOfTheCardAndTheKillingOfTheProgram) {
    fill(500);
    writeSample(card->seen(), "DCIM/LAST.JPG", 100, 3);
    const std::vector<std::string> command{"ingest", "ALPHA", "--to", "Jobs/Shoot", "--email-me"};
    letLand(150);
    Process first = vark.start(command);
    ASSERT_TRUE(untilLanded(150));
    card->pull();
    ASSERT_TRUE(first.untilWritten(waiting)) << first.output() << first.errors();

    letLand(150);
    card->plug();
    ASSERT_TRUE(untilLanded(300));
    first.kill();
    std::filesystem::remove(card->seen() / "DCIM/LAST.JPG");
    card->pull();

    box.clearFaults();
    Process second = vark.start(command);
    ASSERT_TRUE(second.untilWritten(waiting)) << second.output() << second.errors();
    card->plug();
    const Finished run = second.finish();
    expectExit(run, 1);
    expectHeld(files, "Jobs/Shoot/ALPHA/");
    EXPECT_EQ(box.count("POST", "/api/ingest/1/finish"), 1);
    ASSERT_EQ(ingests().size(), 1U);
    EXPECT_EQ(ingests().at(0).at("announced").at("files"), 501);
    EXPECT_EQ(ingests().at(0).at("finished").at("not_sent").at(0).at("source"), "DCIM/LAST.JPG");
    EXPECT_THAT(run.output,
                HasSubstr("Do not clear ALPHA yet: 500 files landed and checked, but 1 thing on it is not "
                          "in the vark as it is there:\n  DCIM/LAST.JPG: The file is no longer where"));
}

TEST_F(Ingest, IsTakenOnByTheRunThatHasTheQueueAndFollowedToItsVerdict) {
    fill(20);
    Process running = vark.start({"run"});
    ASSERT_TRUE(running.untilWritten("Sending to"));
    const std::vector<std::string> command{"ingest", "ALPHA", "--to", "Jobs/Shoot"};
    const Finished safe = vark.run(command);
    expectExit(safe, 0);
    expectHeld(files, "Jobs/Shoot/ALPHA/");
    EXPECT_THAT(safe.output,
                AllOf(HasSubstr("Landed: Jobs/Shoot/ALPHA/DCIM"), HasSubstr("it is safe to clear")));
    EXPECT_EQ(box.count("POST", "/api/ingest/1/finish"), 1);

    writeSample(card->seen(), "DCIM/.IMG_0003.MOV", 500'000, 3);
    writeSample(card->seen(), "DCIM/NEW.JPG", 100, 4);
    letLand(0);
    Process following = vark.start(command);
    ASSERT_TRUE(untilAnswered("POST", "/api/upload/begin", 200, 21));
    running.kill();
    box.clearFaults();
    const Finished unsafe = following.finish();
    expectExit(unsafe, 1);
    EXPECT_THAT(unsafe.output, HasSubstr("Do not clear ALPHA yet"));
    EXPECT_EQ(ingests().size(), 2U);
}

}  // namespace
}  // namespace vark::test
