#include "VarkCore/Activity/ActivityEntry.h"

#include <gtest/gtest.h>

#include <limits>

#include "VarkCore/Foundation/JSON.h"

namespace vark {
namespace {

TEST(ActivityEntry, ShowsThePlaceByTheLastTwoPiecesOfAPath) {
    struct Case {
        const char* path;
        const char* place;
    };
    for (const Case& each :
         {Case{"Jobs/2026/Shoot", "2026 › Shoot"}, Case{"/Jobs//2026/", "Jobs › 2026"}, Case{"Jobs", "Jobs"},
          Case{"", ""}, Case{"///", ""}, Case{"a/ b\t/\u3000c \u00A0", "b › c"}, Case{"a/  ", "a › "}}) {
        EXPECT_EQ(ActivityEntry::placeOf(each.path), each.place) << each.path;
    }
}

TEST(ActivityEntry, CountsEventsInTheWordsOfItsFormat) {
    struct Case {
        const char* many;
        const char* text;
    };
    for (const Case& each : {
             Case{"%d files sent", "3 files sent"},
             Case{"Sent %ld files to Jobs", "Sent 3 files to Jobs"},
             Case{"%1$lld", "3"},
             Case{"%i of 100%% %u", "3 of 100% 3"},
             Case{"no number", "no number"},
             Case{"%s%n%", "%s%n%"},
             Case{"%1$", "%1$"},
             Case{"", ""},
         }) {
        ActivityEntry entry{.text = "one"};
        entry.takeUpOne("two");
        EXPECT_EQ(entry.count, 2) << "the first stands for one";
        entry.takeUpOne(each.many);
        EXPECT_EQ(entry.text, each.text);
        EXPECT_EQ(entry.count, 3);
    }
    ActivityEntry full{.count = std::numeric_limits<std::int64_t>::max()};
    full.takeUpOne("%d");
    EXPECT_EQ(full.count, std::numeric_limits<std::int64_t>::max());
}

TEST(ActivityEntry, StandsInFilesByItsKeysInTheirOrder) {
    const ActivityEntry entry{.id = UUID::parse("00000000-0000-0000-0000-00000000000A").value(),
                              .at = Date::fromSince1970(1'740'000'000),
                              .text = "Sent \"a\"\n",
                              .kind = "put",
                              .place = "p",
                              .group = "g",
                              .many = "m",
                              .count = 2,
                              .folder = "f"};
    JSONWriter json;
    entry.encode(json);
    EXPECT_EQ(
        json.text(),
        R"({"id":"00000000-0000-0000-0000-00000000000A","at":"2025-02-19T21:20:00Z",)"
        R"("text":"Sent \"a\"\n","kind":"put","place":"p","group":"g","many":"m","count":2,"folder":"f"})");
    EXPECT_EQ(ActivityEntry::fromJSON(parseJSON(json.text())), entry);
}

}  // namespace
}  // namespace vark
