#include "Tests/Support/Fakes/SilentVark.h"
#include "Tests/Support/Noon.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/Transfer/ExtensionLog.h"
#include "VarkProvider/LastAnchor.h"
#include "VarkProvider/VarkEnumerator.h"

namespace vark {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

using test::noon;

/// A vark that answers lists and the feed from a script, and is busy at its end.
class ListingVark : public test::SilentVark {
  public:
    std::deque<VarkPage> pages;
    std::deque<std::variant<VarkChanges, VarkAPIError>> feed;
    Duration takes{};
    Lines calls;

    Task<VarkPage> children(std::int64_t of, std::string cursor, std::int64_t limit, bool ahead) override {
        calls.push_back(fmt::format("children {} '{}' {} {}", of, cursor, limit, ahead));
        co_await sleepFor(takes);
        co_return next(pages);
    }
    Task<VarkChanges> changes(std::int64_t under, std::optional<std::string> since,
                              std::int64_t limit) override {
        calls.push_back(fmt::format("changes {} {} {}", under, since.value_or("-"), limit));
        co_await sleepFor(takes);
        const auto answer = next(feed);
        if (const auto* error = std::get_if<VarkAPIError>(&answer)) throw *error;
        co_return std::get<VarkChanges>(answer);
    }

  private:
    template <class T>
    static T next(std::deque<T>& script) {
        if (script.empty()) throw VarkAPIError::server(503, "busy");
        const T answer = script.front();
        script.pop_front();
        return answer;
    }
};

/// Both observers in one; keeps what it is told, a line for each call.
class Told : public EnumerationObserver, public ChangeObserver {
  public:
    Lines lines;

    void wasAskedAt(std::int64_t counter) override { say("asked", std::to_string(counter)); }
    void didEnumerateItems(std::vector<VarkProviderItem> items) override { say("items", items); }
    void didUpdateItems(std::vector<VarkProviderItem> items) override { say("updated", items); }
    void didDeleteItemsWithIdentifiers(std::vector<ItemIdentifier> gone) override {
        say("gone", gone[0].text());
    }
    void finishEnumerating(std::optional<EnumerationPage> upTo) override {
        say("end", upTo ? upTo->bytes() : "-");
    }
    void finishEnumeratingChanges(SyncAnchor upTo, bool more) override {
        say(more ? "more" : "end", upTo.bytes);
    }
    void finishEnumeratingWithError(ProviderError error) override {
        say("error", fmt::format("{} {}", error.code, error.description.value_or("-")));
    }

  private:
    void say(std::string_view what, const std::string& which) {
        lines.push_back(fmt::format("{} {}", what, which));
    }
    void say(std::string what, const std::vector<VarkProviderItem>& items) {
        for (const VarkProviderItem& item : items)
            what += " " + item.itemIdentifier().text();
        lines.push_back(what);
    }
};

class Enumerator : public testing::Test {
  protected:
    TemporaryFolder folder;
    SharedStore::Folder shared = folder / "shared";
    ExtensionLog log{shared, [] { return noon; }, Calendar("UTC")};
    test::TestLoop loop;
    ListingVark vark;
    VarkEnumerator::Shown shown;
    std::int64_t counter = 0;
    std::shared_ptr<PageCache> cache;
    const std::string key = LastAnchor::key("https://vark", 0, 7);
    const EnumerationPage first = EnumerationPage::initialByName();
    std::shared_ptr<Told> told;

    std::unique_ptr<VarkEnumerator> enumerator(bool isWorkingSet = false) {
        told = std::make_shared<Told>();
        const auto now = [this] { return noon + inSeconds(loop.clock.now().time_since_epoch()); };
        const VarkEnumerator::Host host{loop.executor, loop.clock, loop.pool, shared, log, now};
        const auto level = [] { return 4; };
        const auto shownNow = [this] { return shown; };
        const auto count = [this] { return ++counter; };
        const VarkEnumerator::Place place{
            vark,           {}, 7,  level, 50, isWorkingSet, shownNow, [] { return false; }, cache,
            "https://vark", {}, {}, count};
        return std::make_unique<VarkEnumerator>(place, host);
    }
    Lines list(EnumerationPage page, bool isWorkingSet = false) {
        const auto lister = enumerator(isWorkingSet);
        lister->enumerateItems(told, std::move(page));
        loop.advance(vark.takes);
        return told->lines;
    }
    Lines follow(std::string anchor) {
        const auto follower = enumerator(true);
        follower->enumerateChanges(told, SyncAnchor{std::move(anchor)});
        loop.advance(vark.takes);
        return told->lines;
    }
    void hasKept(const char* anchor) {
        LastAnchor::forgetAll(shared);
        LastAnchor::keep(anchor, key, shared);
    }
};

TEST_F(Enumerator, ListsPageByPage) {
    const VarkPage whole{{{.id = 1}, {.id = 2}}, "c1", true}, endless{{}, "c1", true};
    vark.pages = {whole, {}, endless};
    EXPECT_EQ(list(first), (Lines{"asked 1", "items 1 2", "end c1"}));
    EXPECT_EQ(list(EnumerationPage::behind("c1")), (Lines{"asked 2", "items", "end -"}));
    EXPECT_TRUE(list(EnumerationPage::behind("c1"))[0].starts_with("error -1004"))
        << "the same page without end";
    EXPECT_EQ(list(EnumerationPage::behind("\xff")), Lines{"error -1004 busy"});
    EXPECT_EQ(list(first, true), Lines{"end -"}) << "a working set asks nothing";
    EXPECT_EQ(vark.calls, (Lines{"children 7 '' 50 false", "children 7 'c1' 50 false",
                                 "children 7 'c1' 50 false", "children 7 '' 50 false"}));
}

TEST_F(Enumerator, TakesAPageThatCameAheadOnceAndAsOldAsItsQuestion) {
    cache = std::make_shared<PageCache>(30);
    vark.takes = 10s;
    const VarkPage bringing{.ahead = {{7, {.items = {{.id = 3}}}}, {8, {}}}};
    vark.pages = {bringing, {}, bringing, {}};
    EXPECT_EQ(list(first)[0], "asked 1");
    EXPECT_EQ(list(EnumerationPage::behind("x"))[0], "asked 2") << "never from the cache";
    EXPECT_EQ(list(first), (Lines{"asked 1", "items 3", "end -"})) << "of 20 seconds ago";
    EXPECT_EQ(list(first)[0], "asked 3");
    loop.advance(20s);
    EXPECT_EQ(list(first)[0], "asked 4") << "too old";
    EXPECT_EQ(cache->count(), 0U) << "what nobody came for in time has gone";
}

TEST_F(Enumerator, TellsOfTheTopLevelFoldersThatAreShown) {
    const VarkItem top, job{.id = 1, .path = "/Jobs//a"}, old{.id = 2, .path = "Old/a"};
    shown = std::set<std::string>{"Jobs"};
    EXPECT_TRUE(VarkEnumerator::isShown(top, 0, shown) && VarkEnumerator::isShown(job, 0, shown));
    EXPECT_TRUE(VarkEnumerator::isShown(old, 0, {}) && VarkEnumerator::isShown(old, 9, shown));
    vark.pages = {{{job, old}}};
    vark.feed = {VarkChanges{{job, old}, {2}, "1|1"}, VarkChanges{{old}, {}, "2|2"}};
    EXPECT_EQ(list(first), (Lines{"asked 1", "items 1", "end -"}));
    EXPECT_EQ(follow("0|0"), (Lines{"updated 1", "gone 2", "end 1|1"}))
        << "what is gone is told all the same";
    EXPECT_EQ(follow("1|1"), Lines{"end 2|2"});
}

TEST_F(Enumerator, FollowsTheFeedFromWhereTheSystemStood) {
    // clang-format off
    const std::tuple<std::string, const char*, const char*> cases[] = {
        {"5|5", "1|1", "5|5"}, {"", "1|1", "1|1"}, {"\xff", "1|1", "1|1"}, {"", "", "1739999400.000000|0"},
        {"pending", "1|1", "1739999400.000000|0"}, {"pending:1000", "1|1", "400.000000|0"},
    };
    // clang-format on
    for (const auto& [anchor, kept, since] : cases) {
        hasKept(kept);
        vark.feed = {VarkChanges{.cursor = "6|6", .more = true}};
        EXPECT_EQ(follow(anchor), Lines{"more 6|6"});
        EXPECT_EQ(vark.calls.back(), fmt::format("changes 7 {} 50", since));
        EXPECT_EQ(LastAnchor::last(key, shared), "6|6");
    }
}

TEST_F(Enumerator, NoFailureOfTheFeedMovesAnAnchorOrMakesAnythingGone) {
    hasKept("1|1");
    for (const int status : {400, 404, 405, 500}) {
        vark.feed = {VarkAPIError::server(status, "x")};
        EXPECT_EQ(follow("2|2"), Lines{status == 500 ? "error -1004 x" : "error -1004 -"}) << status;
        EXPECT_EQ(LastAnchor::last(key, shared), "1|1");
    }
}

TEST_F(Enumerator, AlwaysSaysWhereItStands) {
    const VarkAPIError away = VarkAPIError::transport("x"), no = VarkAPIError::server(404);
    const VarkChanges end{.cursor = "9|9"};
    // What the vark answers, the last place, the anchor, and after how many calls.
    // clang-format off
    const std::tuple<decltype(vark.feed), const char*, std::string, std::size_t> cases[] = {
        {{end}, "1|1", "9|9", 1}, {{away, away, end}, "1|1", "9|9", 3}, {{away, away, away}, "1|1", "1|1", 3},
        {{no, end}, "1|1", "1|1", 1}, {{VarkChanges{}}, "1|1", "1|1", 1}, {{no}, "", "pending:1740000020", 1},
        {{}, "1|1", "1|1", 1},  // It ends while it asks.
    };
    // clang-format on
    for (const auto& [feed, kept, anchor, calls] : cases) {
        hasKept(kept);
        vark.calls.clear();
        vark.feed = feed;
        vark.takes = feed.empty() ? 60s : 0s;
        std::string said;
        auto asked = enumerator();
        asked->currentSyncAnchor([&](SyncAnchor answer) { said = answer.bytes; });
        loop.advance(4s);
        asked.reset();
        EXPECT_EQ(said, anchor);
        EXPECT_EQ(vark.calls, Lines(calls, "changes 7 - 1"));
    }
}

TEST_F(Enumerator, InvalidatingCancelsWhatWasBegunLast) {
    vark.takes = 60s;
    const auto lister = enumerator();
    const auto earlier = std::make_shared<Told>();
    lister->enumerateItems(earlier, first);
    lister->enumerateChanges(told, SyncAnchor{"1|1"});
    for (int times = 0; times < 2; ++times, loop.settle())
        lister->invalidate();
    EXPECT_EQ(told->lines, Lines{"error 3072 -"});
    EXPECT_TRUE(earlier->lines.empty());
}

}  // namespace
}  // namespace vark
