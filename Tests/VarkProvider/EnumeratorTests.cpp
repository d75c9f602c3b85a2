#include "Tests/Support/Fakes/SilentVark.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/Transfer/ExtensionLog.h"
#include "VarkProvider/LastAnchor.h"
#include "VarkProvider/VarkEnumerator.h"

namespace vark {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

const Date noon = Date::fromSince1970(1'740'000'000);

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
    using Items = std::vector<VarkProviderItem>;

    void wasAskedAt(std::int64_t counter) override { say("asked {}", counter); }
    void didEnumerateItems(Items items) override { say("items{}", numbers(items)); }
    void didUpdateItems(Items items) override { say("updated{}", numbers(items)); }
    void didDeleteItemsWithIdentifiers(std::vector<ItemIdentifier> gone) override {
        say("gone {}", gone[0].text());
    }
    void finishEnumerating(std::optional<EnumerationPage> upTo) override {
        say("end {}", upTo ? upTo->bytes() : "all");
    }
    void finishEnumeratingChanges(SyncAnchor upTo, bool more) override { say("end {} {}", upTo.bytes, more); }
    void finishEnumeratingWithError(ProviderError error) override {
        say("error {} {}", error.code, error.description.value_or("-"));
    }

  private:
    template <class... Values>
    void say(fmt::format_string<Values...> format, Values&&... values) {
        lines.push_back(fmt::format(format, std::forward<Values>(values)...));
    }
    static std::string numbers(const Items& items) {
        std::string numbers;
        for (const VarkProviderItem& item : items)
            numbers += " " + item.itemIdentifier().text();
        return numbers;
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
    std::int64_t rootID = 0, counter = 0;
    std::shared_ptr<PageCache> cache;
    const std::string key = LastAnchor::key("https://vark", 0, 7);
    const EnumerationPage first = EnumerationPage::initialByName();
    std::shared_ptr<Told> told;

    std::unique_ptr<VarkEnumerator> enumerator(bool isWorkingSet = false) {
        told = std::make_shared<Told>();
        const auto now = [this] { return noon + inSeconds(loop.clock.now().time_since_epoch()); };
        const VarkEnumerator::Host host{loop.executor, loop.clock, loop.pool, shared, log, now};
        const VarkEnumerator::Place place{vark,
                                          {rootID},
                                          7,
                                          [] { return 4; },
                                          50,
                                          isWorkingSet,
                                          [this] { return shown; },
                                          [] { return false; },
                                          cache,
                                          "https://vark",
                                          {},
                                          {},
                                          [this] { return ++counter; }};
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
        loop.settle();
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
    EXPECT_EQ(list(EnumerationPage::behind("c1")), (Lines{"asked 2", "items", "end all"}));
    EXPECT_TRUE(list(EnumerationPage::behind("c1"))[0].starts_with("error -1004"))
        << "the same page without end";
    EXPECT_EQ(list(EnumerationPage::behind("\xff")), Lines{"error -1004 busy"});
    EXPECT_EQ(list(first, true), Lines{"end all"}) << "a working set asks nothing";
    EXPECT_EQ(vark.calls, (Lines{"children 7 '' 50 false", "children 7 'c1' 50 false",
                                 "children 7 'c1' 50 false", "children 7 '' 50 false"}));
}

TEST_F(Enumerator, TakesAPageThatCameAheadOnceAndAsOldAsItsQuestion) {
    cache = std::make_shared<PageCache>(30);
    vark.takes = 10s;
    const VarkPage bringing{.ahead = {{7, {.items = {{.id = 3}}}}, {8, {}}}};
    vark.pages = {bringing, {}, bringing, {}};
    EXPECT_EQ(list(first), (Lines{"asked 1", "items", "end all"}));
    EXPECT_EQ(list(EnumerationPage::behind("x")), (Lines{"asked 2", "items", "end all"}))
        << "never from the cache";
    EXPECT_EQ(list(first), (Lines{"asked 1", "items 3", "end all"})) << "of 20 seconds ago";
    EXPECT_EQ(list(first), (Lines{"asked 3", "items", "end all"}));
    loop.advance(20s);
    EXPECT_EQ(list(first), (Lines{"asked 4", "items", "end all"})) << "too old";
    EXPECT_EQ(cache->count(), 0U) << "what nobody came for in time has gone";
}

TEST_F(Enumerator, TellsOfTheTopLevelFoldersThatAreShown) {
    const VarkItem top, job{.id = 1, .path = "/Jobs//a"}, old{.id = 2, .path = "Old/a"};
    shown = std::set<std::string>{"Jobs"};
    EXPECT_TRUE(VarkEnumerator::isShown(top, 0, shown) && VarkEnumerator::isShown(job, 0, shown));
    EXPECT_TRUE(VarkEnumerator::isShown(old, 0, {}) && VarkEnumerator::isShown(old, 9, shown));
    vark.pages = {{{job, old}}};
    vark.feed = {VarkChanges{{job, old}, {2}, "1|1"}, VarkChanges{{old}, {}, "2|2"}};
    EXPECT_EQ(list(first), (Lines{"asked 1", "items 1", "end all"}));
    EXPECT_EQ(follow("0|0"), (Lines{"updated 1", "gone 2", "end 1|1 false"}))
        << "what is gone is told all the same";
    EXPECT_EQ(follow("1|1"), Lines{"end 2|2 false"});
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
        EXPECT_EQ(follow(anchor), Lines{"end 6|6 true"});
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
    vark.pages = {{}};
    const auto lister = enumerator();
    const auto earlier = std::make_shared<Told>();
    lister->enumerateItems(earlier, first);
    lister->enumerateChanges(told, SyncAnchor{"1|1"});
    loop.settle();
    for (int times = 0; times < 2; ++times)
        lister->invalidate();
    loop.advance(60s);
    EXPECT_EQ(told->lines, Lines{"error 3072 -"});
    EXPECT_EQ(earlier->lines.back(), "end all");
}

}  // namespace
}  // namespace vark
