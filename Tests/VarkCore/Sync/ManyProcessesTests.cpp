#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <numeric>
#include <random>
#include <ranges>

#include "Tests/Support/BuildTree.h"
#include "Tests/Support/Process.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Activity/ActivityHistory.h"
#include "VarkCore/Activity/SharedActivity.h"
#include "VarkCore/Sync/SharedSync.h"

namespace vark {
namespace {

using test::Process;

const Date noon = Date::fromSince1970(1'740'000'000);

/// One folder, and real processes that share it.
class ManyProcesses : public testing::Test {
  protected:
    Process start(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin() + 1, shared->native());
        const std::string number = std::to_string(++started_);
        Process::Options options;
        options.program = test::buildTree() / "Tests/VarkCore/Sync/StatusWriter";
        options.arguments = std::move(arguments);
        options.output = folder / (number + ".output");
        options.errors = folder / (number + ".errors");
        return Process(options);
    }
    void expectAllEndWell(std::vector<Process>& processes) {
        for (Process& process : processes)
            EXPECT_EQ(process.wait(std::chrono::minutes(10)).code, 0) << process.errors();
    }
    /// The numbers of each writer's lines, in the order of the file.
    std::map<std::string, std::vector<int>> linesInHistory() const {
        std::map<std::string, std::vector<int>> lines;
        for (const ActivityEntry& entry : ActivityHistory::read(shared, noon) | std::views::reverse) {
            const std::size_t blank = entry.text.find(' ');
            if (!entry.text.starts_with("old"))
                lines[entry.text.substr(0, blank)].push_back(std::stoi(entry.text.substr(blank)));
        }
        return lines;
    }

    TemporaryFolder folder;
    SharedStore::Folder shared = folder / "shared";

  private:
    int started_ = 0;
};

TEST_F(ManyProcesses, FourWritersOfTheBoardLoseNoChange) {
    // Of 20 changes each: at full scale all four make ten thousand.
    const int rounds = std::getenv("VARK_FULL_SCALE") != nullptr ? 125 : 10;
    std::vector<Process> writers;
    for (const char* name : {"a", "b", "c", "d"})
        writers.push_back(start({"sync", name, std::to_string(rounds)}));
    expectAllEndWell(writers);
}

TEST_F(ManyProcesses, AWriterThatIsKilledLeavesABoardThatIsReadAndWritten) {
    const auto seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int round = 0; round < 20; ++round) {
        Process writer = start({"sync-for-ever"});
        const auto changesBefore = static_cast<std::int64_t>(random() % 40 + 1);
        const auto standing = [&] {
            const std::vector<SyncOp> ops = SharedSync::read(shared, noon);
            const auto found = std::ranges::find(ops, "stands", &SyncOp::path);
            return found == ops.end() ? std::int64_t{0} : found->done;
        };
        while (standing() < changesBefore)
            ASSERT_FALSE(writer.hasEnded()) << writer.errors();
        writer.kill();
        const std::size_t records = SharedSync::read(shared, noon).size();
        ASSERT_GE(records, 1U) << "the file cannot be read";
        SharedSync::begin(SyncOp(SyncOp::Kind::bin, std::to_string(round), 1, noon), shared);
        ASSERT_EQ(SharedSync::read(shared, noon).size(), records + 1);
        SharedSync::clear(shared);
    }
}

TEST_F(ManyProcesses, WritersOfTheActivityMixNoLines) {
    std::vector<Process> writers;
    for (const char* name : {"a", "b", "c", "d"})
        writers.push_back(start({"lines", name, "50", "9000"}));
    expectAllEndWell(writers);
    std::vector<int> all(50);
    std::iota(all.begin(), all.end(), 0);
    for (const char* name : {"a", "b", "c", "d"})
        EXPECT_EQ(linesInHistory()[name], all) << name;
    EXPECT_EQ(SharedActivity::read(shared).size(), 40U);
}

TEST_F(ManyProcesses, APruneLosesAtMostWhatIsAddedMeanwhile) {
    // Large enough from the start that every reading prunes.
    for (int number = 0; number < 5; ++number)
        ActivityHistory::append({.at = noon, .text = "old " + std::string(1 << 20, 'x'), .kind = "put"},
                                shared);
    Process writer = start({"lines", "w", "400", "100"});
    std::size_t prunes = 0;
    for (; !writer.hasEnded(); ++prunes)
        ActivityHistory::read(shared, noon);
    const std::vector<int> left = linesInHistory()["w"];
    ASSERT_FALSE(left.empty());
    std::size_t gaps = 0;
    for (std::size_t place = 1; place < left.size(); ++place) {
        ASSERT_GT(left[place], left[place - 1]);
        if (left[place] != left[place - 1] + 1) ++gaps;
    }
    EXPECT_LE(gaps, prunes) << "each prune opens one gap at most";
}

}  // namespace
}  // namespace vark
