#include "VarkPlatform/Linux/Avahi/BrowsingNews.h"

#include <cassert>
#include <utility>

namespace vark {

BrowsingNews::~BrowsingNews() {
    close();
    home_.runUntil([this] { return !isPosted(); });
}

int BrowsingNews::open(ServiceBrowser::OnState onState, ServiceBrowser::OnResults onResults) {
    assert(home_.isCurrent());
    onState_ = std::move(onState);
    onResults_ = std::move(onResults);
    return ++round_;
}

void BrowsingNews::add(int round, Item item) {
    Locked hold(lock_);
    entries_.push_back({round, std::move(item)});
    if (std::exchange(posted_, true)) return;
    // Under the lock: once it is released, the executor may find that nothing is left, and end this.
    home_.post(*this);
}

void BrowsingNews::run() noexcept {
    std::vector<Entry> entries;
    {
        Locked hold(lock_);
        entries.swap(entries_);
        posted_ = false;
    }
    for (Entry& entry : entries) {
        if (entry.round != round_) continue;
        if (const auto* state = std::get_if<BrowsingState>(&entry.item)) {
            onState_(*state);
        } else {
            onResults_(std::move(std::get<std::vector<FoundService>>(entry.item)));
        }
    }
}

bool BrowsingNews::isPosted() {
    Locked hold(lock_);
    return posted_;
}

}  // namespace vark
