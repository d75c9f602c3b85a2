#include "VarkCore/Activity/ActivityEntry.h"

#include <gtest/gtest.h>

#include <limits>

#include "VarkCore/Foundation/JSON.h"

namespace vark {
namespace {

TEST(ActivityEntry, HasACategoryByItsKind) {
    using Category = ActivityEntry::Category;
    struct Case {
        const char* kind;
        Category category;
    };
    for (const Case& each :
         {Case{"put", Category::sent}, Case{"folder", Category::sent}, Case{"open", Category::opened},
          Case{"move", Category::moved}, Case{"rename", Category::moved}, Case{"bin", Category::binned},
          Case{"link", Category::links}, Case{"share", Category::other}, Case{"", Category::other}}) {
        EXPECT_EQ(ActivityEntry{.kind = each.kind}.category(), each.category) << each.kind;
    }
}

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
    ActivityEntry entry{.id = UUID::parse("00000000-0000-0000-0000-00000000000A").value(),
                        .at = Date::fromSince1970(1'740'000'000),
                        .text = "Sent \"a\"\n",
                        .kind = "put"};
    const auto written = [&] {
        JSONWriter json;
        entry.encode(json);
        return json.take();
    };
    EXPECT_EQ(written(), R"({"id":"00000000-0000-0000-0000-00000000000A","at":"2025-02-19T21:20:00Z",)"
                         R"("text":"Sent \"a\"\n","kind":"put"})");
    EXPECT_EQ(ActivityEntry::fromJSON(parseJSON(written())), entry);
    entry.place = "p";
    entry.group = "g";
    entry.many = "m";
    entry.count = 2;
    entry.folder = "f";
    EXPECT_TRUE(
        written().ends_with(R"("kind":"put","place":"p","group":"g","many":"m","count":2,"folder":"f"})"))
        << written();
    EXPECT_EQ(ActivityEntry::fromJSON(parseJSON(written())), entry);
}

}  // namespace
}  // namespace vark
