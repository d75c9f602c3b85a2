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
    bool untilSaved(const Process& process) const {
        std::filesystem::create_directories(vark.queueFile().parent_path());
        FileWatch watch(vark.queueFile().parent_path());
        return watch.until([&] { return std::filesystem::exists(vark.queueFile()); }, std::chrono::minutes(1),
                           process.descriptor());
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
    json::object report() const { return ingests().at(0).at("finished").as_object(); }

    const std::string waiting = "Plug ALPHA back in to carry on. Nothing is lost.";
    std::unique_ptr<TestCard> card;
    std::vector<SampleFile> files;
};

TEST_F(Ingest, SurvivesThePullingOfTheCardAndTheKillingOfTheProgram) {
    fill(500);
    writeSample(card->path(), "MISC/settings.dat", 100, 1);
    writeSample(card->path(), "DCIM/INDEX.TXT", 100, 2);
    box.put("Jobs/Shoot/ALPHA/DCIM/INDEX.TXT", "what another camera wrote");
    const std::vector<std::string> command = {"ingest",     "ALPHA",         "--to",
                                              "Jobs/Shoot", "--leave-out",   "MISC",
                                              "--email-me", "--on-conflict", "skip"};
    letLand(150);
    std::optional<Process> running(vark.start(command));
    ASSERT_TRUE(untilLanded(150, *running)) << running->output() << running->errors();
    card->pull();
    ASSERT_TRUE(untilPrinted(waiting, *running)) << running->output() << running->errors();

    letLand(150);
    card->plug();
    ASSERT_TRUE(untilLanded(300, *running)) << running->output() << running->errors();
    running->kill();
    card->pull();

    letAllLand();
    running.reset();
    running.emplace(vark.start({"ingest", "ALPHA", "--on-conflict", "skip"}));
    ASSERT_TRUE(untilPrinted(waiting, *running)) << running->output() << running->errors();
    card->plug();
    EXPECT_EQ(running->wait(), exitCode(0)) << running->output() << running->errors() << vark.diary();

    expectAllHeld("Jobs/Shoot/ALPHA/");
    EXPECT_EQ(box.bytesAt("Jobs/Shoot/ALPHA/DCIM/INDEX.TXT"), "what another camera wrote");
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
    const json::object skipped{{"source", "DCIM/INDEX.TXT"},
                               {"path", "Jobs/Shoot/ALPHA/DCIM/INDEX.TXT"},
                               {"size", 100},
                               {"why", "A different file is already at Jobs/Shoot/ALPHA/DCIM/INDEX.TXT."}};
    EXPECT_EQ(report().at("skipped"), json::value(json::array{skipped}));
    EXPECT_EQ(report().at("left_out"), json::value(json::array{"MISC"}));
    EXPECT_TRUE(report().at("not_sent").as_array().empty()) << json::serialize(report());
    EXPECT_THAT(running->output(), HasSubstr("Do not clear ALPHA yet: 500 files landed and checked"));
    EXPECT_THAT(running->output(), HasSubstr("  MISC: It was left out."));
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

TEST_F(Ingest, TellsOnceWhatWasNotSent) {
    fill(10);
    fault(R"({"kind": "stall", "path": "/api/upload/begin"})");
    Process stopped = vark.start({"ingest", "ALPHA", "--to", "Shoot"});
    ASSERT_TRUE(untilSaved(stopped)) << stopped.output() << stopped.errors();
    stopped.kill();
    letAllLand();
    std::filesystem::remove(card->path() / files.back().relativePath);

    const Finished first = vark.run({"ingest", "ALPHA"});
    expectExit(first, 1);
    ASSERT_EQ(report().at("not_sent").as_array().size(), 1U) << json::serialize(report());
    EXPECT_EQ(report().at("not_sent").at(0).at("source"), files.back().relativePath);
    EXPECT_EQ(report().at("not_sent").at(0).at("why"), "The file is no longer where it was.");
    EXPECT_TRUE(report().at("skipped").as_array().empty());

    expectExit(vark.run({"retry"}), 0);
    expectExit(vark.run({"send"}), 1);
    EXPECT_EQ(box.count("POST", "/api/ingest/1/finish"), 1);
}

TEST_F(Ingest, DoesNotTakeAnotherCardOfTheSameNameForItsOwn) {
    if (!card->hasIdentifier())
        GTEST_SKIP() << "NO DISK CAN BE MADE HERE: two cards of one name are NOT tested.";
    fill(30);
    letLand(5);
    Process running = vark.start({"ingest", "ALPHA", "--to", "Shoot"});
    ASSERT_TRUE(untilLanded(5, running)) << running.output() << running.errors();
    card->pull();
    ASSERT_TRUE(untilPrinted(waiting, running));
    letAllLand();
    std::unique_ptr<TestCard> other = TestCard::make("ALPHA");
    for (const SampleFile& file : files)
        writeSample(other->path(), file.relativePath, file.size, 1000);
    EXPECT_THAT(vark.run({"queue"}).output, HasSubstr(waiting));
    other->pull();
    card->plug();
    EXPECT_EQ(running.wait(), exitCode(0)) << running.output() << running.errors();
    expectAllHeld("Shoot/ALPHA/");
}

}  // namespace
}  // namespace vark::test
