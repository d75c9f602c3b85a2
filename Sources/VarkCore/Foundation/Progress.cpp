#include "VarkCore/Foundation/Progress.h"

#include <algorithm>
#include <utility>

namespace vark {

std::int64_t Progress::totalUnitCount() const {
    const Locked hold(lock_);
    return total_;
}

void Progress::setTotalUnitCount(std::int64_t units) {
    const Locked hold(lock_);
    total_ = units;
}

std::int64_t Progress::completedUnitCount() const {
    const Locked hold(lock_);
    std::int64_t completed = completed_;
    for (const Child& child : children_) {
        if (child.progress->fractionCompleted() >= 1) completed += child.units;
    }
    return completed;
}

void Progress::setCompletedUnitCount(std::int64_t units) {
    const Locked hold(lock_);
    completed_ = units;
}

double Progress::fractionCompleted() const {
    const Locked hold(lock_);
    auto completed = static_cast<double>(completed_);
    for (const Child& child : children_)
        completed += static_cast<double>(child.units) * child.progress->fractionCompleted();
    if (total_ <= 0) return completed > 0 ? 1 : 0;
    return std::clamp(completed / static_cast<double>(total_), 0.0, 1.0);
}

void Progress::addChild(std::shared_ptr<const Progress> child, std::int64_t pendingUnitCount) {
    const Locked hold(lock_);
    children_.push_back({std::move(child), pendingUnitCount});
}

}  // namespace vark
