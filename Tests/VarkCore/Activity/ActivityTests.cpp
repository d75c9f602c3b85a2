#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Activity/ActivityHistory.h"
#include "VarkCore/Activity/SharedActivity.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {
namespace {

const Date noon = Date::fromSince1970(1'740'000'000);
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

TEST(ActivityEntry, WordsItsPlaceAndItsCount) {
    EXPECT_EQ(ActivityEntry::placeOf("/Jobs//2026/ Shoot\t/"), "2026 › Shoot");
    EXPECT_EQ(ActivityEntry::placeOf("Jobs"), "Jobs");
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

TEST_F(ActivityHistoryTest, AFileThatHasGrownLargeKeepsItsNewestLines) {
    // Out of order, so that the newest are not simply the last.
    std::string content = encoded(line("newest")) + encoded(line("old", noon - 91 * day));
    for (int number = 1; number <= 20'005; ++number)
        content += encoded(line(std::string(200, 'x'), noon - (20'006 - number)));
    ASSERT_GT(content.size(), 4'194'304U);
    folder.file("shared/history.jsonl", content);
    const std::vector<ActivityEntry> all = read();
    EXPECT_EQ(all.size(), 20'006U) << "what is read is not cut";
    const std::vector<ActivityEntry> left = read();
    ASSERT_EQ(left.size(), 20'000U);
    EXPECT_EQ(left.front().text, "newest");
    EXPECT_EQ(left.back(), all[19'999]);
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
        {{{0, "g", "%d of line"}, {1, "g", {}}}, "2 of line "},
        {{{0, "g", "%d of line"}, {1, "g", "%d of entry"}}, "2 of entry "},
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

TEST_F(SharedActivityTest, FoldsLikeEventsIntoTheNewestLine) {
    ActivityEntry entry = line("one");
    entry.group = "put:Jobs";
    entry.many = "%d files";
    for (const double later : {0.0, 299.0, 598.0, 898.0})
        EXPECT_TRUE(SharedActivity::note(entry, shared, noon + later));
    EXPECT_EQ(texts(SharedActivity::read(shared)), "one 3 files ");
    entry.group = "bin:Jobs";
    EXPECT_TRUE(SharedActivity::note(entry, shared, noon + 899));
    EXPECT_EQ(texts(SharedActivity::read(shared)), "one one 3 files ");
    EXPECT_EQ(texts(read()), "one one one one one ") << "unfolded";
}

TEST_F(SharedActivityTest, ADamagedFileCountsAsEmptyAndWithoutAFolderNothingIsStored) {
    folder.file("shared/activity.json", "[{}]");
    EXPECT_TRUE(SharedActivity::read(shared).empty());
    EXPECT_TRUE(SharedActivity::append(line("a"), shared));
    EXPECT_EQ(SharedActivity::read(shared).size(), 1U);
    const SharedStore::Folder blocked = folder.file("a file");
    for (const SharedStore::Folder& place : {SharedStore::Folder(), blocked}) {
        EXPECT_FALSE(SharedActivity::append(line("a"), place));
        EXPECT_FALSE(SharedActivity::note(line("a"), place, noon));
        EXPECT_TRUE(SharedActivity::read(place).empty());
        EXPECT_TRUE(ActivityHistory::read(place, noon).empty());
    }
}

}  // namespace
}  // namespace vark
