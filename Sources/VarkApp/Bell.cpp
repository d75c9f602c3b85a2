#include "VarkApp/Bell.h"

#include <utility>

namespace vark::app {

namespace {

Task<void> sleeping(Duration longest) {
    co_await sleepFor(longest);
}

}  // namespace

void Bell::ring() {
    TaskHandle<void> sleep;
    {
        const Locked hold(lock_);
        isRung_ = true;
        sleep = sleep_;
    }
    sleep.cancel();
}

Task<void> Bell::waitAtMost(Duration longest) {
    TaskHandle<void> sleep;
    {
        const Locked hold(lock_);
        if (std::exchange(isRung_, false)) co_return;
        sleep = sleep_ = scope_.start(sleeping(longest));
    }
    bool isCutShort = false;
    try {
        co_await sleep.value();
    } catch (const CancellationError&) {
        isCutShort = true;
    }
    sleep.cancel();
    {
        const Locked hold(lock_);
        if (std::exchange(isRung_, false)) co_return;
    }
    // Then it was whoever waits that was cancelled.
    if (isCutShort) throw CancellationError();
}

}  // namespace vark::app
