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

    void put(const std::string& name, std::int64_t size) { writeSample(card->seen(), name, size, 3); }
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
    void expectAllHeld() const { expectHeld(files, "Jobs/Shoot/ALPHA/"); }
    json::array ingests() const { return box.control("GET", "/control/ingests").at("ingests").as_array(); }
    json::value report() const { return ingests().at(0).at("finished"); }
    static json::object entry(const std::string& source, std::int64_t size, const char* why) {
        return {{"source", source}, {"path", "Jobs/Shoot/ALPHA/" + source}, {"size", size}, {"why", why}};
    }

    const char* waiting = "Plug ALPHA back in to carry on. Nothing is lost.";
    std::unique_ptr<TestCard> card;
    std::vector<SampleFile> files;
};

TEST_F(Ingest, SurvivesThePullingOfTheCardAndTheKillingOfTheProgram) {
    fill(500);
    put("DCIM/LAST.JPG", 100);
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
    expectAllHeld();
    EXPECT_EQ(box.count("POST", "/api/ingest/1/finish"), 1);
    ASSERT_EQ(ingests().size(), 1U);
    std::int64_t bytes = 100;
    for (const SampleFile& file : files)
        bytes += file.size;
    const json::value announced{{"drive", "ALPHA"},
                                {"destination", "Jobs/Shoot"},
                                {"files", 501},
                                {"bytes", bytes},
                                {"email_me", true}};
    EXPECT_EQ(ingests().at(0).at("announced"), announced);
    const char* gone = "The file is no longer where it was.";
    EXPECT_EQ(report().at("not_sent"), (json::array{entry("DCIM/LAST.JPG", 100, gone)}));
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
    expectAllHeld();
    EXPECT_THAT(safe.output,
                AllOf(HasSubstr("Landed: Jobs/Shoot/ALPHA/DCIM"), HasSubstr("ALPHA is safe to clear")));
    EXPECT_EQ(box.count("POST", "/api/ingest/1/finish"), 1);

    put("DCIM/.IMG_0003.MOV", 500'000);
    put("DCIM/NEW.JPG", 100);
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

TEST_F(Ingest, NamesWhatOfACardIsNotInTheVark) {
    fill(5);
    put("MISC/settings.dat", 100);
    put("DCIM/INDEX.TXT", 100);
    put("DCIM/.IMG_0003.MOV", 500'000);
    put("lost+found/clip.mov", 500'000);
    std::filesystem::permissions(card->seen() / "lost+found", std::filesystem::perms::none);
    const std::string taken = "Jobs/Shoot/ALPHA/DCIM/INDEX.TXT";
    box.put(taken, "what another camera wrote");
    // The superuser would read every folder.
    std::vector<std::string> prefix = card->mounts().prefix();
    prefix.insert(prefix.end(), {"/usr/bin/setpriv", "--bounding-set", "-dac_override,-dac_read_search"});
    vark.moveTo({.prefix = prefix});
    const Finished run = vark.run(
        {"ingest", "ALPHA", "--to", "Jobs/Shoot", "--leave-out", "MISC", "--on-conflict", "skip", "--json"});
    expectExit(run, 1);
    expectAllHeld();
    EXPECT_EQ(box.bytesAt(taken), "what another camera wrote");
    const std::string conflict = "A different file is already at " + taken + ".";
    const json::array skipped{entry("DCIM/INDEX.TXT", 100, conflict.c_str()),
                              entry("DCIM/.IMG_0003.MOV", 0, "What is hidden is not sent.")};
    const json::array notSent{entry("lost+found", 0, "This folder could not be read.")};
    EXPECT_EQ(report(),
              json::value({{"skipped", skipped}, {"left_out", json::array{"MISC"}}, {"not_sent", notSent}}));
    EXPECT_THAT(run.output, HasSubstr(R"("safeToClear":false,"lookedThrough":true,"landed":5,)"));
}

TEST_F(Ingest, CallsACardSafeToClearOnceAllOfItHasLanded) {
    fill(20);
    const Finished run = vark.run({"ingest", card->path()});
    expectExit(run, 0);
    EXPECT_THAT(run.output,
                HasSubstr("Every file of ALPHA has landed and been checked: it is safe to clear."));
    const std::string destination(ingests().at(0).at("announced").at("destination").as_string());
    EXPECT_THAT(destination, testing::EndsWith(" ALPHA"));
    expectHeld(files, destination + "/ALPHA/");
    const json::array none;
    EXPECT_EQ(report(), json::value({{"skipped", none}, {"left_out", none}, {"not_sent", none}}));
}

}  // namespace
}  // namespace vark::test
