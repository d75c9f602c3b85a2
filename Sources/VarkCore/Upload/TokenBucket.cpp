#include "VarkCore/Upload/TokenBucket.h"

#include <algorithm>

namespace vark {
namespace {

/// How many seconds' worth of bytes an idle bucket gives free.
constexpr double burst = 0.25;

}  // namespace

TokenBucket::TokenBucket(std::int64_t bytesPerSecond) : rate_(std::max<std::int64_t>(bytesPerSecond, 0)) {}

std::int64_t TokenBucket::bytesPerSecond() const {
    const Locked locked(lock_);
    return rate_;
}

void TokenBucket::setBytesPerSecond(std::int64_t bytesPerSecond) {
    const Locked locked(lock_);
    rate_ = std::max<std::int64_t>(bytesPerSecond, 0);
    nextFree_ = Date{};
}

double TokenBucket::delay(std::int64_t bytes, Date now) {
    const Locked locked(lock_);
    if (rate_ < 1 || bytes < 1) return 0;
    const Date start = std::max(nextFree_, now - burst);
    nextFree_ = start + static_cast<double>(bytes) / static_cast<double>(rate_);
    return std::max(start - now, 0.0);
}

}  // namespace vark
