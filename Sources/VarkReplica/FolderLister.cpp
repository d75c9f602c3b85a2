#include "VarkReplica/FolderLister.h"

#include <cassert>

namespace vark {

/// One page of a listing as the enumerator tells it, and where the next one begins.
class FolderLister::Page final : public EnumerationObserver {
  public:
    explicit Page(EnumerationPage from) : from(std::move(from)) {}

    void wasAskedAt(std::int64_t counter) override { asked = Asked{counter}; }
    void didEnumerateItems(std::vector<VarkProviderItem> told) override {
        for (const VarkProviderItem& item : told)
            items.push_back(item.vark());
    }
    void finishEnumerating(std::optional<EnumerationPage> upTo) override { next = std::move(upTo); }
    void finishEnumeratingWithError(ProviderError failed) override { error = std::move(failed); }

    const EnumerationPage from;
    Asked asked;
    std::vector<VarkItem> items;
    /// Nothing behind the last page.
    std::optional<EnumerationPage> next;
    std::optional<ProviderError> error;
};

ListingFailure::ListingFailure(ProviderError error)
    : std::runtime_error(error.description.value_or("The vark could not list this folder.")),
      error_(std::move(error)) {}

FolderLister::FolderLister(Host host) : host_(std::move(host)), scope_(host_.executor, host_.clock) {}

void FolderLister::begin(Ino folder) {
    scope_.start(beginHere(folder));
}

Task<void> FolderLister::beginHere(Ino folder) {
    runOf(folder);
    co_return;
}

std::shared_ptr<FolderLister::Run> FolderLister::runOf(Ino folder) {
    assert(host_.executor.isCurrent());
    if (const auto found = runs_.find(folder); found != runs_.end()) return found->second;
    const std::optional<Record> record = host_.replica.record(folder);
    if (!record || !record->isFolder() || !record->there) throw NoSuchNode();
    if (record->listed) return nullptr;
    auto run = std::make_shared<Run>();
    runs_.emplace(folder, run);
    run->page = scope_.start(host_.hasPlace());
    run->all = scope_.start(list(folder, record->there->id, run));
    return run;
}

Task<void> FolderLister::list(Ino folder, std::int64_t id, std::shared_ptr<Run> run) {
    // However it ends, whoever comes next looks at the folder anew.
    struct Leave {
        FolderLister* lister;
        Ino folder;
        ~Leave() { lister->runs_.erase(folder); }
    } leave{this, folder};

    const TaskHandle<void> place = run->page;
    co_await place.value();
    const std::shared_ptr<VarkEnumerator> enumerator = host_.enumerator(id);
    std::optional<Asked> first;
    std::optional<EnumerationPage> next = EnumerationPage::initialByName();
    while (next) {
        auto page = std::make_shared<Page>(std::move(*next));
        run->page = scope_.start(takePage(enumerator, page));
        const TaskHandle<void> taken = run->page;
        co_await taken.value();
        if (!first) first = page->asked;
        next = std::move(page->next);
    }
    host_.replica.markListed(folder, *first);
}

Task<void> FolderLister::takePage(std::shared_ptr<VarkEnumerator> enumerator, std::shared_ptr<Page> page) {
    const TaskHandle<void> work = enumerator->enumerateItems(page, page->from);
    try {
        co_await work.value();
    } catch (const CancellationError&) {
        enumerator->invalidate();
        throw;
    }
    if (page->error) throw ListingFailure(*page->error);
    host_.tell(host_.replica.learn(page->items, page->asked).news);
}

Task<std::optional<Record>> FolderLister::named(Ino folder, std::string name) {
    if (const std::shared_ptr<Run> run = runOf(folder)) {
        const std::optional<Record> parent = host_.replica.record(folder);
        if (!parent || !parent->there) throw NoSuchNode();
        co_await host_.hasPlace();
        const Asked asked = host_.replica.ask();
        const ChildAnswer answer = co_await host_.vark.child(parent->there->id, name);
        if (answer.isNone()) co_return std::nullopt;
        const VarkItem* item = answer.item();
        if (item == nullptr) {
            co_await listed(folder);
        } else if (VarkEnumerator::isShown(*item, host_.root, host_.shown())) {
            host_.tell(host_.replica.learn({item, 1}, asked).news);
        }
    }
    try {
        co_return host_.replica.lookup(folder, name);
    } catch (const NotKnown&) {
        // The vark has just called it something else, or it lies where nothing is shown.
        co_return std::nullopt;
    }
}

bool FolderLister::hasBehind(Ino folder, Position after) {
    const Listing listing = host_.replica.list(folder, after, 1);
    return listing.isAll || !listing.entries.empty();
}

Task<void> FolderLister::entriesBehind(Ino folder, Position after) {
    while (!hasBehind(folder, after)) {
        const std::shared_ptr<Run> run = runOf(folder);
        if (!run) co_return;
        const TaskHandle<void> page = run->page;
        co_await page.value();
        // The listing goes on to its next page before this looks again.
        co_await yieldNow();
    }
}

Task<void> FolderLister::listed(Ino folder) {
    const std::shared_ptr<Run> run = runOf(folder);
    if (!run) co_return;
    const TaskHandle<void> all = run->all;
    co_await all.value();
}

}  // namespace vark
