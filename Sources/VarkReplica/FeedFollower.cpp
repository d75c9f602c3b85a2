#include "VarkReplica/FeedFollower.h"

#include <algorithm>

#include "VarkCore/Transfer/ExtensionLog.h"

namespace vark {
namespace {

using namespace std::chrono_literals;

constexpr Duration whenUsed = 5s;
constexpr Duration whenIdle = 30s;
constexpr Duration idleAfter = 1min;
constexpr Duration afterAFailure = 5s;
constexpr Duration mostAfterFailures = 1min;

/// One page of changes as the enumerator tells it.
class ChangePage final : public ChangeObserver {
  public:
    explicit ChangePage(ItemIdentity identity) : identity_(identity) {}

    void didUpdateItems(std::vector<VarkProviderItem> told) override {
        for (const VarkProviderItem& item : told)
            items.push_back(item.vark());
    }
    void didDeleteItemsWithIdentifiers(std::vector<ItemIdentifier> identifiers) override {
        for (const ItemIdentifier& identifier : identifiers) {
            if (const std::optional<std::int64_t> id = identity_.varkID(identifier)) gone.push_back(*id);
        }
    }
    void finishEnumeratingChanges(SyncAnchor upTo, bool moreComing) override {
        anchor = std::move(upTo.bytes);
        more = moreComing;
    }
    void finishEnumeratingWithError(ProviderError) override {}

    std::vector<VarkItem> items;
    std::vector<std::int64_t> gone;
    /// Nothing when the page failed.
    std::optional<std::string> anchor;
    bool more = false;

  private:
    const ItemIdentity identity_;
};

Task<void> sleeping(Duration duration) {
    co_await sleepFor(duration);
}

}  // namespace

FeedFollower::FeedFollower(Replica& replica, VarkEnumerator& changes, DoubtedItems& doubts, ExtensionLog& log,
                           Tell tell, Executor& executor, Clock& clock)
    : replica_(replica),
      changes_(changes),
      doubts_(doubts),
      log_(log),
      tell_(std::move(tell)),
      clock_(clock),
      used_(clock.now()),
      scope_(executor, clock) {}

void FeedFollower::start() {
    place_ = scope_.start(takePlace());
    scope_.start(follow());
}

void FeedFollower::used() {
    const Instant now = clock_.now();
    const Instant before = used_.exchange(now, std::memory_order_relaxed);
    if (now - before >= idleAfter) hurry();
}

void FeedFollower::hurry() {
    TaskHandle<void> pause;
    {
        Locked locked(lock_);
        isHurried_ = true;
        pause = pause_;
    }
    pause.cancel();
}

Task<void> FeedFollower::pause(Duration duration) {
    TaskHandle<void> pause;
    {
        Locked locked(lock_);
        if (!isHurried_) pause = pause_ = scope_.start(sleeping(duration));
    }
    if (!pause.done()) co_await pause.finished();
    {
        Locked locked(lock_);
        isHurried_ = false;
    }
    co_await checkCancellation();
}

Duration FeedFollower::pace(int failures) const {
    if (failures > 0)
        return std::min<Duration>(afterAFailure * (1 << std::min(failures - 1, 10)), mostAfterFailures);
    return clock_.now() - used_.load(std::memory_order_relaxed) < idleAfter ? whenUsed : whenIdle;
}

Task<void> FeedFollower::takePlace() {
    if (replica_.anchor()) co_return;
    auto said = std::make_shared<SyncAnchor>();
    const TaskHandle<void> work =
        changes_.currentSyncAnchor([said](SyncAnchor anchor) { *said = std::move(anchor); });
    co_await work.value();
    replica_.setAnchor(said->bytes);
}

Task<void> FeedFollower::follow() {
    for (int failures = 0;;) {
        Page page = Page::failed;
        try {
            if (failures > 0 && !replica_.anchor()) place_ = scope_.start(takePlace());
            co_await place_.value();
            page = co_await takePage();
            if (page == Page::last) co_await doubts_.ask();
        } catch (const std::exception& error) {
            page = Page::failed;
            if (failures == 0) log_.note("disk", error.what());
        }
        failures = page == Page::failed ? failures + 1 : 0;
        if (page == Page::oneOfMore) continue;
        co_await pause(pace(failures));
    }
}

Task<FeedFollower::Page> FeedFollower::takePage() {
    const std::optional<std::string> from = replica_.anchor();
    const Asked asked = replica_.ask();
    auto page = std::make_shared<ChangePage>(changes_.place().identity);
    const TaskHandle<void> work = changes_.enumerateChanges(page, SyncAnchor{from.value_or("")});
    try {
        co_await work.value();
    } catch (const CancellationError&) {
        changes_.invalidate();
        throw;
    }
    if (!page->anchor) co_return Page::failed;
    tell_(replica_.learnFeed(page->items, page->gone, *page->anchor, asked).news);
    if (!page->more) co_return Page::last;
    // A feed that does not move would be asked without end.
    co_return page->anchor == from ? Page::failed : Page::oneOfMore;
}

}  // namespace vark
