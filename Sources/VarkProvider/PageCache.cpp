#include "VarkProvider/PageCache.h"

namespace vark {

void PageCache::put(VarkPage page, std::int64_t folder, Date at, std::int64_t counter) {
    const Locked hold(lock_);
    pages_.insert_or_assign(folder, Held{std::move(page), at, counter});
}

std::optional<PageCache::Held> PageCache::take(std::int64_t folder, Date now) {
    const Locked hold(lock_);
    auto entry = pages_.extract(folder);
    if (!entry || now - entry.mapped().at >= maxAge_) return std::nullopt;
    return std::move(entry.mapped());
}

void PageCache::forgetOld(Date now) {
    const Locked hold(lock_);
    std::erase_if(pages_, [&](const auto& entry) { return now - entry.second.at >= maxAge_; });
}

std::size_t PageCache::count() const {
    const Locked hold(lock_);
    return pages_.size();
}

}  // namespace vark
