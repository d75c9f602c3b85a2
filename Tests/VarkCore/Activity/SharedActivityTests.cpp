#include "VarkCore/Activity/SharedActivity.h"

#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Activity/ActivityHistory.h"
#include "VarkCore/Connection/Locations.h"

namespace vark {
namespace {

const Date noon = Date::fromSince1970(1'740'000'000);

ActivityEntry sent(std::string text, Date at = noon) {
    return {.at = at, .text = std::move(text), .kind = "put", .group = "put:Jobs", .many = "%d files"};
}

class SharedActivityTest : public testing::Test {
  protected:
    std::vector<ActivityEntry> read() const { return SharedActivity::read(shared); }

    TemporaryFolder folder;
    SharedStore::Folder shared = folder / "shared";
};

TEST_F(SharedActivityTest, KeepsTheNewestLinesAndTheHistoryAll) {
    for (int number = 0; number <= 40; ++number)
        EXPECT_TRUE(SharedActivity::append(sent(std::to_string(number)), shared));
    const std::vector<ActivityEntry> lines = read();
    ASSERT_EQ(lines.size(), 40U);
    EXPECT_EQ(lines.front().text, "40");
    EXPECT_EQ(lines.back().text, "1");
    EXPECT_EQ(ActivityHistory::read(shared, noon).size(), 41U);
    for (const std::filesystem::path& file : {SharedFiles::activity(*shared), SharedFiles::history(*shared)})
        EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600)) << file;

    SharedActivity::clear(shared);
    EXPECT_TRUE(read().empty());
    EXPECT_EQ(ActivityHistory::read(shared, noon).size(), 41U);
}

TEST_F(SharedActivityTest, FoldsLikeEventsIntoTheNewestLine) {
    struct Case {
        const char* what;
        std::optional<std::string> firstGroup;
        std::optional<std::string> group;
        std::optional<std::string> many;
        double later;
        bool folds;
    };
    const Case cases[] = {
        {"299 seconds", "put:Jobs", "put:Jobs", "%d files", 299, true},
        {"300 seconds", "put:Jobs", "put:Jobs", "%d files", 300, false},
        {"another group", "put:Jobs", "bin:Jobs", "%d files", 1, false},
        {"no group on either", std::nullopt, std::nullopt, "%d files", 1, false},
        {"no format", "put:Jobs", "put:Jobs", std::nullopt, 1, false},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.what);
        SharedActivity::clear(shared);
        ActivityHistory::clear(shared);
        ActivityEntry first = sent("first");
        first.group = each.firstGroup;
        EXPECT_TRUE(SharedActivity::note(first, shared, noon));
        EXPECT_EQ(read(), std::vector{first});

        ActivityEntry second = sent("second");
        second.group = each.group;
        second.many = each.many;
        EXPECT_TRUE(SharedActivity::note(second, shared, noon + each.later));
        EXPECT_EQ(ActivityHistory::read(shared, noon).front(), second) << "unfolded";
        if (!each.folds) {
            EXPECT_EQ(read(), (std::vector{second, first}));
            continue;
        }
        first.text = "2 files";
        first.count = 2;
        first.at = noon + each.later;
        EXPECT_EQ(read(), std::vector{first});
    }
}

TEST_F(SharedActivityTest, ADamagedFileCountsAsEmptyAndIsReplaced) {
    for (const char* damage : {"", "{}", "[{}]", R"([{"id":"x","at":"","text":"","kind":""}])"}) {
        folder.file("shared/activity.json", damage);
        EXPECT_TRUE(read().empty()) << damage;
        EXPECT_TRUE(SharedActivity::append(sent("a"), shared));
        EXPECT_EQ(read().size(), 1U) << damage;
    }
}

TEST_F(SharedActivityTest, SaysWhenALineIsNotStored) {
    folder.file("shared", "a file where the folder should be");
    for (const SharedStore::Folder& place : {SharedStore::Folder(), shared}) {
        EXPECT_FALSE(SharedActivity::append(sent("a"), place));
        EXPECT_FALSE(SharedActivity::note(sent("a"), place, noon));
        EXPECT_FALSE(ActivityHistory::append(sent("a"), place));
        EXPECT_TRUE(SharedActivity::read(place).empty());
        EXPECT_TRUE(ActivityHistory::read(place, noon).empty());
    }
}

TEST_F(SharedActivityTest, TellsWhenInWords) {
    struct Case {
        double age;
        const char* text;
    };
    for (const Case& each :
         {Case{-5, "just now"}, Case{59.9, "just now"}, Case{60, "1 min ago"}, Case{3599, "59 min ago"},
          Case{3600, "1 hour ago"}, Case{7199, "1 hour ago"}, Case{7200, "2 hours ago"},
          Case{86'399, "23 hours ago"}, Case{86'400, "yesterday"}, Case{172'799, "yesterday"},
          Case{172'800, "18 Feb"}, Case{8e6, "19 Nov"}}) {
        EXPECT_EQ(SharedActivity::when(noon - each.age, noon, Calendar("Australia/Melbourne")), each.text)
            << each.age;
    }
}

}  // namespace
}  // namespace vark
