#include "VarkProvider/BinnedEcho.h"

#include <algorithm>

namespace vark {

BinnedEcho::BinnedEcho(int keep) : keep_(static_cast<std::size_t>(std::max(keep, 1))) {}

void BinnedEcho::remember(std::int64_t id, std::string path) {
    const Locked hold(lock_);
    const bool isNew = paths_.insert_or_assign(id, std::move(path)).second;
    if (isNew) order_.push_back(id);
    while (order_.size() > keep_) {
        paths_.erase(order_.front());
        order_.pop_front();
    }
}

std::optional<std::string> BinnedEcho::path(std::int64_t of) const {
    const Locked hold(lock_);
    const auto found = paths_.find(of);
    return found == paths_.end() ? std::nullopt : std::optional(found->second);
}

std::size_t BinnedEcho::count() const {
    const Locked hold(lock_);
    return order_.size();
}

}  // namespace vark
