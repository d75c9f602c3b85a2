#include <fmt/format.h>

#include <boost/json/serialize.hpp>

#include "Tests/EndToEnd/EndToEndTest.h"
#include "Tests/Support/TestCard.h"

namespace vark::test {
namespace {

using testing::HasSubstr;

namespace json = boost::json;

/// A person with a card, and a box that holds back what it is told to hold back: so a test decides how far an
/// ingest gets, however slow the machine is.
class Ingest : public EndToEndTest {
  protected:
    void SetUp() override {
        EndToEndTest::SetUp();
        card = TestCard::make("ALPHA");
        if (!card) GTEST_SKIP() << "NOTHING CAN BE MOUNTED HERE: the ingest of a card is NOT tested.";
    }

    void fill(int count) {
        for (int n = 0; n < count; ++n)
            files.push_back(writeSample(card->path(),
                                        fmt::format("DCIM/{}EOS/IMG_{:04}.JPG", 100 + n / 100, n),
                                        3000 + 17 * n, static_cast<std::uint64_t>(n) + 1));
    }
    /// So many more files land, and the next ones get no answer.
    void letLand(int count) {
        box.control("DELETE", "/control/faults");
        fault(fmt::format(
            R"({{"kind": "stall", "path": "/api/upload/", "path_contains": "/finish", "skip": {}}})", count));
    }
    void letAllLand() { box.control("DELETE", "/control/faults"); }
    bool untilLanded(int count, const Process& process) {
        return box.untilRequests(
            [count](const std::vector<LoggedRequest>& requests) {
                return std::ranges::count_if(requests, [](const LoggedRequest& request) {
                           return request.target.starts_with("/api/upload/") &&
                                  request.target.ends_with("/finish") && request.status == 200;
                       }) >= count;
            },
            process.descriptor());
    }
    bool untilPrinted(std::string_view words, const Process& process) const {
        FileWatch watch(vark.runsFolder());
        return watch.until([&] { return process.output().find(words) != std::string::npos; },
                           std::chrono::minutes(1), process.descriptor());
    }
    void expectAllHeld(const std::string& below) const {
        std::map<std::string, std::string> held;
        for (const HeldFile& file : box.files())
            held[file.path] = file.sha256;
        for (const SampleFile& file : files)
            EXPECT_EQ(held[below + file.relativePath], file.sha256) << file.relativePath;
    }
    json::array ingests() const {
        return box.client().control("GET", "/control/ingests").json().at("ingests").as_array();
    }
    static json::object entry(const std::string& source, std::int64_t size, const char* why) {
        return {{"source", source}, {"path", "Jobs/Shoot/ALPHA/" + source}, {"size", size}, {"why", why}};
    }
    json::object report() const { return ingests().at(0).at("finished").as_object(); }

    const std::string waiting = "Plug ALPHA back in to carry on. Nothing is lost.";
    std::unique_ptr<TestCard> card;
    std::vector<SampleFile> files;
};

TEST_F(Ingest, SurvivesThePullingOfTheCardAndTheKillingOfTheProgram) {
    fill(500);
    writeSample(card->path(), "DCIM/LAST.JPG", 100, 3);
    const std::vector<std::string> command = {"ingest", "ALPHA", "--to", "Jobs/Shoot", "--email-me"};
    letLand(150);
    std::optional<Process> running(vark.start(command));
    ASSERT_TRUE(untilLanded(150, *running)) << running->output() << running->errors();
    card->pull();
    ASSERT_TRUE(untilPrinted(waiting, *running)) << running->output() << running->errors();

    letLand(150);
    card->plug();
    ASSERT_TRUE(untilLanded(300, *running)) << running->output() << running->errors();
    running->kill();
    std::filesystem::remove(card->path() / "DCIM/LAST.JPG");
    card->pull();

    letAllLand();
    running.reset();
    running.emplace(vark.start(command));
    ASSERT_TRUE(untilPrinted(waiting, *running)) << running->output() << running->errors();
    card->plug();
    EXPECT_EQ(running->wait(), exitCode(1)) << running->output() << running->errors() << vark.diary();

    expectAllHeld("Jobs/Shoot/ALPHA/");
    EXPECT_EQ(box.count("POST", "/api/ingest/1/finish"), 1);
    ASSERT_EQ(ingests().size(), 1U);
    std::int64_t bytes = 100;
    for (const SampleFile& file : files)
        bytes += file.size;
    EXPECT_EQ(ingests().at(0).at("announced"), json::value({{"drive", "ALPHA"},
                                                            {"destination", "Jobs/Shoot"},
                                                            {"files", 501},
                                                            {"bytes", bytes},
                                                            {"email_me", true}}));
    EXPECT_EQ(
        report(),
        json::value(
            {{"skipped", json::array{}},
             {"left_out", json::array{}},
             {"not_sent", json::array{entry("DCIM/LAST.JPG", 100, "The file is no longer where it was.")}}}));
    EXPECT_THAT(running->output(),
                HasSubstr("Do not clear ALPHA yet: 500 files landed and checked, but 1 thing on "
                          "it is not in the vark as it is there:\n"
                          "  DCIM/LAST.JPG: The file is no longer where it was.\n"));
}

TEST_F(Ingest, NamesWhatOfACardIsNotInTheVark) {
    fill(5);
    writeSample(card->path(), "MISC/settings.dat", 100, 1);
    writeSample(card->path(), "DCIM/INDEX.TXT", 100, 2);
    writeSample(card->path(), "DCIM/.IMG_0003.MOV", 500'000, 3);
    writeSample(card->path(), "lost+found/clip.mov", 500'000, 4);
    std::filesystem::permissions(card->path() / "lost+found", std::filesystem::perms::none);
    box.put("Jobs/Shoot/ALPHA/DCIM/INDEX.TXT", "what another camera wrote");
    // The superuser would read every folder.
    vark.moveTo({.prefix = {"/usr/bin/setpriv", "--bounding-set", "-dac_override,-dac_read_search"}});
    const Finished run = vark.run(
        {"ingest", "ALPHA", "--to", "Jobs/Shoot", "--leave-out", "MISC", "--on-conflict", "skip", "--json"});
    expectExit(run, 1);
    expectAllHeld("Jobs/Shoot/ALPHA/");
    EXPECT_EQ(box.bytesAt("Jobs/Shoot/ALPHA/DCIM/INDEX.TXT"), "what another camera wrote");
    EXPECT_EQ(
        report(),
        json::value({{"skipped", json::array{entry("DCIM/INDEX.TXT", 100,
                                                   "A different file is already at "
                                                   "Jobs/Shoot/ALPHA/DCIM/INDEX.TXT."),
                                             entry("DCIM/.IMG_0003.MOV", 0, "What is hidden is not sent.")}},
                     {"left_out", json::array{"MISC"}},
                     {"not_sent", json::array{entry("lost+found", 0, "This folder could not be read.")}}}));
    EXPECT_THAT(run.output, HasSubstr(R"("safeToClear":false,"lookedThrough":true,"landed":5,)"));
}

TEST_F(Ingest, CallsACardSafeToClearOnceAllOfItHasLanded) {
    fill(20);
    const Finished run = vark.run({"ingest", card->path().string()});
    expectExit(run, 0);
    EXPECT_THAT(run.output,
                HasSubstr("Every file of ALPHA has landed and been checked: it is safe to clear."));
    const std::string destination(ingests().at(0).at("announced").at("destination").as_string());
    EXPECT_THAT(destination, testing::EndsWith(" ALPHA"));
    expectAllHeld(destination + "/ALPHA/");
    EXPECT_EQ(
        report(),
        json::value({{"skipped", json::array{}}, {"left_out", json::array{}}, {"not_sent", json::array{}}}));
}

}  // namespace
}  // namespace vark::test
