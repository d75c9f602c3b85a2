#include "VarkProvider/LastAnchor.h"

#include <gtest/gtest.h>

#include <thread>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

const Date noon = Date::fromSince1970(1'740'000'000.75);
using Anchor = std::optional<std::string>;

class LastAnchorTest : public testing::Test {
  protected:
    std::string content() const { return readWholeFile(file); }

    TemporaryFolder folder;
    SharedStore::Folder shared = folder / "shared";
    std::filesystem::path file = folder / "shared/anchors.json";
};

TEST_F(LastAnchorTest, TellsPendingAnchorsFromPlaces) {
    struct Case {
        Anchor anchor;
        bool isPending;
    };
    for (const Case& each :
         {Case{std::nullopt, false}, Case{"", false}, Case{"pending", true}, Case{"pending:", true},
          Case{"pending:1740000000", true}, Case{"pending:x", true}, Case{"pending-ish", false},
          Case{"pendingX:1", false}, Case{"1740000000.5|12", false}}) {
        EXPECT_EQ(LastAnchor::isPending(each.anchor), each.isPending) << each.anchor.value_or("none");
        LastAnchor::forgetAll(shared);
        LastAnchor::keep(each.anchor.value_or(""), "k", shared);
        const bool isPlace = each.anchor && !each.anchor->empty() && !each.isPending;
        EXPECT_EQ(LastAnchor::last("k", shared), isPlace ? each.anchor : std::nullopt);
        EXPECT_EQ(exists(file), isPlace);
    }
}

TEST_F(LastAnchorTest, KeepsOnePlaceForEachFolderOfEachConnection) {
    const std::string one = LastAnchor::key("https://a.example", 7, -3);
    const std::string other = LastAnchor::key("https://b.example", 7, -3);
    EXPECT_EQ(one, "https://a.example#7#-3");
    LastAnchor::keep("1|1", one, shared);
    LastAnchor::keep("2|2", other, shared);
    LastAnchor::keep("3|3", one, shared);
    EXPECT_EQ(LastAnchor::last(one, shared), "3|3");
    EXPECT_EQ(LastAnchor::last(other, shared), "2|2");
    EXPECT_EQ(content(), R"({"https://a.example#7#-3":"3|3","https://b.example#7#-3":"2|2"})");
    LastAnchor::forgetAll(shared);
    EXPECT_FALSE(LastAnchor::last(one, shared));
}

TEST_F(LastAnchorTest, AnswersWithAPlaceWheneverThereIsOne) {
    struct Case {
        Anchor varkSaid;
        Anchor stored;
        const char* answer;
        Anchor storedThen;
    };
    for (const Case& each : {
             Case{"2|2", "1|1", "2|2", "2|2"},
             Case{"2|2", std::nullopt, "2|2", "2|2"},
             Case{std::nullopt, "1|1", "1|1", "1|1"},
             Case{"", "1|1", "1|1", "1|1"},
             Case{"pending", "1|1", "1|1", "1|1"},
             Case{"pending:5", std::nullopt, "pending:1740000000", std::nullopt},
             Case{std::nullopt, std::nullopt, "pending:1740000000", std::nullopt},
         }) {
        LastAnchor::forgetAll(shared);
        LastAnchor::keep(each.stored.value_or(""), "k", shared);
        EXPECT_EQ(LastAnchor::answer(each.varkSaid, "k", shared, noon), each.answer);
        EXPECT_EQ(LastAnchor::last("k", shared), each.storedThen) << each.answer;
    }
    EXPECT_EQ(LastAnchor::pendingNow(Date::fromSince1970(-0.5)), "pending:0");
}

TEST_F(LastAnchorTest, StartsAWhileBeforeAPendingAnchorWasGiven) {
    struct Case {
        const char* anchor;
        double lookingBack;
        const char* start;
    };
    for (const Case& each : {
             Case{"pending:1700000000", 600, "1699999400.000000|0"},
             Case{"pending:1700000000.25", 0, "1700000000.250000|0"},
             Case{"pending", 600, "1739999400.750000|0"},
             Case{"pending:12x", 600, "1739999400.750000|0"},
             Case{"pending:nan", 600, "1739999400.750000|0"},
             Case{"pending:-7", 0, "0.000000|0"},
             Case{"1|1", 600, "1739999400.750000|0"},
         }) {
        EXPECT_EQ(LastAnchor::startFor(each.anchor, each.lookingBack, noon), each.start) << each.anchor;
    }
}

TEST_F(LastAnchorTest, ADamagedFileCountsAsEmptyAndIsReplaced) {
    for (const char* damage : {"", "[]", R"({"k":1})", R"({"k":null})", R"({"k":"1|1")"}) {
        folder.file("shared/anchors.json", damage);
        EXPECT_FALSE(LastAnchor::last("k", shared)) << damage;
        LastAnchor::keep("2|2", "other", shared);
        EXPECT_EQ(content(), R"({"other":"2|2"})");
    }
}

TEST_F(LastAnchorTest, NeverFailsWithoutAFolderOrALock) {
    folder.file("shared", "a file where the folder should be");
    for (const SharedStore::Folder& place : {SharedStore::Folder(), shared}) {
        EXPECT_EQ(LastAnchor::answer("1|1", "k", place, noon), "1|1");
        EXPECT_FALSE(LastAnchor::last("k", place));
        LastAnchor::forgetAll(place);
    }
}

TEST_F(LastAnchorTest, WritersAtOnceLoseNoKey) {
    constexpr int each = 25;
    {
        std::vector<std::jthread> writers;
        for (int writer = 0; writer < 4; ++writer) {
            writers.emplace_back([&, writer] {
                for (int number = 0; number < each; ++number)
                    LastAnchor::keep("1|1", LastAnchor::key("s", writer, number), shared);
            });
        }
    }
    for (int writer = 0; writer < 4; ++writer) {
        for (int number = 0; number < each; ++number)
            EXPECT_EQ(LastAnchor::last(LastAnchor::key("s", writer, number), shared), "1|1");
    }
    for (const std::filesystem::path& path : {file, SharedFiles::anchorsLock(*shared)})
        EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0600)) << path;
}

}  // namespace
}  // namespace vark
