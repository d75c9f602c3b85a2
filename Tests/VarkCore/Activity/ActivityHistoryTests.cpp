#include "VarkCore/Activity/ActivityHistory.h"

#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/JSON.h"

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

class ActivityHistoryTest : public testing::Test {
  protected:
    std::vector<ActivityEntry> read() const { return ActivityHistory::read(shared, noon); }

    TemporaryFolder folder;
    SharedStore::Folder shared = folder / "shared";
    std::filesystem::path file = folder / "shared/history.jsonl";
};

TEST_F(ActivityHistoryTest, AddsLinesAndReadsTheNewestFirst) {
    EXPECT_TRUE(ActivityHistory::append(line("b", noon - 5), shared));
    EXPECT_TRUE(ActivityHistory::append(line("a", noon - 9), shared));
    EXPECT_TRUE(ActivityHistory::append(line("c", noon - 5), shared));
    EXPECT_EQ(texts(read()), "c b a ");
}

TEST_F(ActivityHistoryTest, LeavesOutWhatIsDamagedOrOldAndKeepsItInTheFile) {
    const std::string content = encoded(line("old", noon - 90 * day - 1)) +
                                encoded(line("just", noon - 90 * day)) + "{broken\n\n[]\n" +
                                encoded(line("new")) + "{\"id\":\"cut off";
    folder.file("shared/history.jsonl", content);
    EXPECT_EQ(texts(read()), "new just ");
    EXPECT_EQ(readWholeFile(file), content);
}

TEST_F(ActivityHistoryTest, AFileThatHasGrownLargeKeepsItsNewestLines) {
    constexpr std::size_t limit = 4'194'304;
    constexpr int lines = 20'005;
    // Out of order, so that the newest are not simply the last.
    std::string content = encoded(line("newest", noon)) + "{broken\n" + encoded(line("old", noon - 91 * day));
    for (int number = 1; number < lines; ++number)
        content += encoded(line(std::to_string(number) + std::string(100, 'x'), noon - (lines - number)));
    const std::size_t padding = limit - content.size() - encoded(line("")).size();
    ASSERT_LT(content.size(), limit);
    content += encoded(line(std::string(padding, 'y'), noon - 2 * lines));
    ASSERT_EQ(content.size(), limit);
    folder.file("shared/history.jsonl", content);
    EXPECT_EQ(read().size(), lines + 1U);
    EXPECT_EQ(readWholeFile(file).size(), limit) << "not above the limit";

    folder.file("shared/history.jsonl", content + "\n");
    const std::vector<ActivityEntry> all = read();
    EXPECT_EQ(all.size(), lines + 1U) << "what is read is not cut";
    const std::vector<ActivityEntry> left = read();
    ASSERT_EQ(left.size(), 20'000U);
    EXPECT_EQ(left.front().text, "newest");
    EXPECT_EQ(left.back(), all[19'999]);
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
    EXPECT_TRUE(readWholeFile(file).starts_with(encoded(left.back()))) << "the oldest first";
}

TEST_F(ActivityHistoryTest, FoldsRunsOfNeighbours) {
    struct Event {
        double secondsAgo;
        std::optional<std::string> group;
        std::optional<std::string> many;
        const char* text = "one";
    };
    struct Case {
        const char* what;
        std::vector<Event> events;
        std::vector<std::string> lines;
    };
    const Case cases[] = {
        {"nothing", {}, {}},
        {"a steady stream, however long",
         {{0, "g", "%d"}, {299, "g", "%d"}, {598, "g", "%d"}, {897, "g", "%d"}},
         {"4"}},
        {"a gap of 300 seconds", {{0, "g", "%d"}, {300, "g", "%d"}}, {"one", "one"}},
        {"another group between", {{0, "g", "%d"}, {1, "h", "%d"}, {2, "g", "%d"}}, {"one", "one", "one"}},
        {"no group", {{0, {}, "%d"}, {1, {}, "%d"}}, {"one", "one"}},
        {"no format on either side", {{0, "g", {}}, {1, "g", {}}}, {"one", "one"}},
        {"the format of the line", {{0, "g", "%d of line"}, {1, "g", {}}}, {"2 of line"}},
        {"the entry's own format first", {{0, "g", "%d of line"}, {1, "g", "%d of entry"}}, {"2 of entry"}},
        {"the gap to the neighbour, folded or not",
         {{0, "g", "%d"}, {250, "g", "%d"}, {600, "g", "%d"}, {700, "g", "%d"}},
         {"2", "2"}},
    };
    for (const Case& each : cases) {
        std::vector<ActivityEntry> entries;
        for (const Event& event : each.events) {
            entries.push_back(line(event.text, noon - event.secondsAgo));
            entries.back().group = event.group;
            entries.back().many = event.many;
        }
        std::vector<std::string> lines;
        const std::vector<ActivityEntry> folded = ActivityHistory::folded(entries);
        for (const ActivityEntry& one : folded)
            lines.push_back(one.text);
        EXPECT_EQ(lines, each.lines) << each.what;
        if (!folded.empty()) EXPECT_EQ(folded.front().at, noon) << "the newest of its run";
    }
}

}  // namespace
}  // namespace vark
