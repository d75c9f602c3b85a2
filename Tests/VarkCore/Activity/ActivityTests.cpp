#include <gtest/gtest.h>

#include "Tests/Support/Noon.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Activity/ActivityHistory.h"
#include "VarkCore/Activity/SharedActivity.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {
namespace {

using test::noon;
constexpr double day = 86'400;

ActivityEntry line(std::string text, Date at = noon) {
    return {.at = at, .text = std::move(text), .kind = "put"};
}

std::string encoded(const ActivityEntry& entry) {
    JSONWriter json;
    entry.encode(json);
    return json.take() + "\n";
}

std::string texts(const std::vector<ActivityEntry>& entries) {
    std::string all;
    for (const ActivityEntry& entry : entries)
        all += entry.text + " ";
    return all;
}

TEST(ActivityEntry, PutsNothingButANumberIntoItsWords) {
    const std::pair<const char*, const char*> cases[] = {
        {"Sent %ld files", "Sent 2 files"},
        {"%1$lld of 100%%", "2 of 100%"},
        {"%s%n%1$%", "%s%n%1$%"},
    };
    for (const auto& [many, words] : cases) {
        ActivityEntry entry{.text = "one"};
        entry.takeUpOne(many);
        EXPECT_EQ(entry.text, words) << "the first stands for one, and nothing but a number is put in";
    }
}

class ActivityHistoryTest : public testing::Test {
  protected:
    std::vector<ActivityEntry> read() const { return ActivityHistory::read(shared, noon); }

    TemporaryFolder folder;
    SharedStore::Folder shared = folder / "shared";
    std::filesystem::path file = folder / "shared/history.jsonl";
};

TEST_F(ActivityHistoryTest, ReadsTheNewestFirstAndLeavesOutWhatIsDamagedOrOld) {
    const ActivityEntry whole{.id = UUID::random(),
                              .at = noon,
                              .text = "Sent \"a\"\n",
                              .kind = "put",
                              .place = "p",
                              .group = "g",
                              .many = "m",
                              .count = 2,
                              .folder = "f"};
    const std::string content = encoded(line("old", noon - 90 * day - 1)) + encoded(line("b", noon - 5)) +
                                "{broken\n\n[]\n" + encoded(line("a", noon - 90 * day)) + encoded(whole) +
                                encoded(line("c", noon - 5)) + "{\"id\":\"cut off";
    folder.file("shared/history.jsonl", content);
    EXPECT_EQ(read().at(0), whole);
    EXPECT_EQ(texts(read()), whole.text + " c b a ");
    EXPECT_EQ(readWholeFile(file), content);
}

TEST_F(ActivityHistoryTest, FoldsRunsOfNeighbours) {
    struct Event {
        double secondsAgo;
        std::optional<std::string> group = "g";
        std::optional<std::string> many = "%d";
    };
    struct Case {
        std::vector<Event> events;
        const char* lines;
    };
    // clang-format off
    const Case cases[] = {
        {{{0}, {299}, {598}, {897}}, "4 "},
        {{{0}, {300}}, "one one "},
        {{{0}, {1, "h"}, {2}}, "one one one "},
        {{{0, {}}, {1, {}}}, "one one "},
        {{{0, "g", {}}, {1, "g", {}}}, "one one "},
        {{{0}, {250}, {600}, {700}}, "2 2 "},
    };
    // clang-format on
    for (const Case& each : cases) {
        std::vector<ActivityEntry> entries;
        for (const Event& event : each.events) {
            entries.push_back(line("one", noon - event.secondsAgo));
            entries.back().group = event.group;
            entries.back().many = event.many;
        }
        EXPECT_EQ(texts(ActivityHistory::folded(entries)), each.lines) << (&each - cases);
    }
}

class SharedActivityTest : public ActivityHistoryTest {};

TEST_F(SharedActivityTest, KeepsTheNewestLinesAndTheHistoryAll) {
    for (int number = 0; number <= 40; ++number)
        EXPECT_TRUE(SharedActivity::append(line(std::to_string(number)), shared));
    const std::vector<ActivityEntry> lines = SharedActivity::read(shared);
    ASSERT_EQ(lines.size(), 40U);
    EXPECT_EQ(lines.front().text, "40");
    EXPECT_EQ(lines.back().text, "1");
    SharedActivity::clear(shared);
    EXPECT_TRUE(SharedActivity::read(shared).empty());
    EXPECT_EQ(read().size(), 41U);
}

}  // namespace
}  // namespace vark
