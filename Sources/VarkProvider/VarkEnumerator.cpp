#include "VarkProvider/VarkEnumerator.h"

#include <fmt/format.h>

#include <algorithm>

#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/ExtensionLog.h"
#include "VarkProvider/LastAnchor.h"
#include "VarkProvider/Patience.h"

namespace vark {
namespace {

constexpr std::string_view logTag = "finder";
/// Seconds before the moment at which there was no place in the feed, so that what was under way then is
/// heard of.
constexpr double lookingBack = 600;

std::string cursorOf(const EnumerationPage& page) {
    const bool isText = page.kind() == EnumerationPage::Kind::behind && isUTF8(page.bytes());
    return isText ? page.bytes() : "";
}

std::optional<std::string> textOf(const SyncAnchor& anchor) {
    if (anchor.bytes.empty() || !isUTF8(anchor.bytes)) return std::nullopt;
    return anchor.bytes;
}

/// Whether the vark refuses to go on from a place in the feed.
bool isRefusedPlace(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const VarkAPIError& error) {
        const auto* server = std::get_if<VarkAPIError::Server>(&error.which());
        if (server == nullptr) return false;
        return server->status == 400 || server->status == 404 || server->status == 405;
    } catch (...) {
        return false;
    }
}

}  // namespace

VarkEnumerator::VarkEnumerator(Place place, Host host)
    : place_(std::move(place)), host_(std::move(host)), scope_(host_.executor, host_.clock) {}

bool VarkEnumerator::isShown(const VarkItem& item, std::int64_t rootID, const Shown& shown) {
    if (rootID != 0 || !shown) return true;
    const std::vector<std::string> components = pathComponents(item.path);
    return components.empty() || shown->contains(components.front());
}

std::string VarkEnumerator::key() const {
    return LastAnchor::key(place_.connection, place_.identity.rootID, place_.container);
}

std::vector<VarkProviderItem> VarkEnumerator::told(std::vector<VarkItem> items) const {
    const std::int64_t level = place_.level();
    const Shown shown = place_.shown();
    std::vector<VarkProviderItem> told;
    for (VarkItem& item : items) {
        if (!isShown(item, place_.identity.rootID, shown)) continue;
        told.emplace_back(std::move(item), place_.identity, level, place_.jobNumbers());
    }
    return told;
}

TaskHandle<void> VarkEnumerator::keepAsLatest(TaskHandle<void> work) {
    const Locked hold(lock_);
    work_ = work;
    return work;
}

void VarkEnumerator::invalidate() {
    TaskHandle<void> latest;
    {
        const Locked hold(lock_);
        latest = std::exchange(work_, {});
    }
    latest.cancel();
}

// The pages of a folder.

TaskHandle<void> VarkEnumerator::enumerateItems(std::shared_ptr<EnumerationObserver> observer,
                                                EnumerationPage startingAt) {
    if (place_.isWorkingSet) {
        observer->finishEnumerating(std::nullopt);
        return {};
    }
    const std::int64_t size = observer->suggestedPageSize().value_or(place_.pageSize);
    return keepAsLatest(scope_.start(list(std::move(observer), cursorOf(startingAt), size)));
}

Task<void> VarkEnumerator::list(std::shared_ptr<EnumerationObserver> observer, std::string cursor,
                                std::int64_t size) {
    std::exception_ptr failure;
    try {
        PageCache::Held held = co_await page(cursor, size);
        // Whoever took that for another page would ask for the same one without end.
        if (held.page.more && held.page.cursor == cursor)
            throw VarkAPIError::badResponse(fmt::format("the children of {}", place_.container));
        std::optional<EnumerationPage> next;
        if (held.page.more) next = EnumerationPage::behind(std::move(held.page.cursor));
        observer->wasAskedAt(held.counter);
        observer->didEnumerateItems(told(std::move(held.page.items)));
        observer->finishEnumerating(std::move(next));
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) observer->finishEnumeratingWithError(providerError(failure));
}

Task<PageCache::Held> VarkEnumerator::page(std::string cursor, std::int64_t size) {
    // A page is as old as the question, however long the vark thinks about it.
    const Date asked = host_.now();
    PageCache* const cache = place_.cache.get();
    if (cache != nullptr && cursor.empty()) {
        std::optional<PageCache::Held> held = cache->take(place_.container, asked);
        if (held) co_return std::move(*held);
    }
    const std::int64_t counter = place_.counter ? place_.counter() : 0;
    VarkPage page = co_await place_.api.children(place_.container, cursor, std::max<std::int64_t>(size, 1),
                                                 cache != nullptr);
    if (cache != nullptr) {
        cache->forgetOld(host_.now());
        for (auto& [folder, first] : page.ahead)
            cache->put(std::move(first), folder, asked, counter);
    }
    co_return PageCache::Held{std::move(page), asked, counter};
}

// The change feed.

TaskHandle<void> VarkEnumerator::enumerateChanges(std::shared_ptr<ChangeObserver> observer, SyncAnchor from) {
    return keepAsLatest(scope_.start(follow(std::move(observer), std::move(from))));
}

Task<void> VarkEnumerator::follow(std::shared_ptr<ChangeObserver> observer, SyncAnchor from) {
    std::exception_ptr failure;
    try {
        std::string start = co_await startFor(std::move(from));
        VarkChanges changes =
            co_await place_.api.changes(place_.container, std::move(start), place_.pageSize);
        std::vector<VarkProviderItem> updated = told(std::move(changes.changed));
        if (!updated.empty()) observer->didUpdateItems(std::move(updated));
        if (!changes.gone.empty()) {
            std::vector<ItemIdentifier> deleted;
            for (std::int64_t id : changes.gone)
                deleted.push_back(place_.identity.identifier(id));
            observer->didDeleteItemsWithIdentifiers(std::move(deleted));
        }
        co_await host_.pool.run([this, &changes] { LastAnchor::keep(changes.cursor, key(), host_.folder); });
        observer->finishEnumeratingChanges(SyncAnchor{std::move(changes.cursor)}, changes.more);
    } catch (...) {
        failure = std::current_exception();
    }
    if (!failure) co_return;
    if (!isRefusedPlace(failure)) {
        observer->finishEnumeratingWithError(providerError(failure));
        co_return;
    }
    host_.log.note(logTag,
                   "too far behind to catch up change by change; keeping this Mac's place and asking again");
    observer->finishEnumeratingWithError(ProviderError::refusedPlace());
}

Task<std::string> VarkEnumerator::startFor(SyncAnchor from) {
    std::optional<std::string> text = textOf(from);
    if (LastAnchor::isPending(text)) {
        std::string start = LastAnchor::startFor(*text, lookingBack, host_.now());
        host_.log.note(logTag,
                       fmt::format("this Mac has no place in the feed yet; catching up from {}", start));
        co_return start;
    }
    if (text) co_return std::move(*text);
    std::optional<std::string> last =
        co_await host_.pool.run([this] { return LastAnchor::last(key(), host_.folder); });
    std::string start =
        last ? std::move(*last) : LastAnchor::startFor(LastAnchor::pending, lookingBack, host_.now());
    host_.log.note(logTag, fmt::format("macOS has no place in the change feed; catching up from {}", start));
    co_return start;
}

TaskHandle<void> VarkEnumerator::currentSyncAnchor(std::function<void(SyncAnchor)> completion) {
    return scope_.start(sayWhere(std::move(completion)));
}

Task<void> VarkEnumerator::sayWhere(std::function<void(SyncAnchor)> completion) {
    std::optional<std::string> said;
    try {
        const VarkChanges end =
            co_await Patience::run([this] { return place_.api.changes(place_.container, std::nullopt, 1); });
        said = end.cursor;
    } catch (...) {
        // Whatever it was, a cancellation included, the last place is an answer, and none would not be.
    }
    std::string anchor = co_await host_.pool.run(
        [this, &said] { return LastAnchor::answer(said, key(), host_.folder, host_.now()); });
    completion(SyncAnchor{std::move(anchor)});
}

}  // namespace vark
