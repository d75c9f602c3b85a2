#include "VarkCore/Upload/RunWhileItMoves.h"

#include <chrono>

namespace vark::detail {

Task<void> watchForStall(std::int64_t length, StallWatch watch, std::function<std::int64_t()> moved,
                         StallFlag& flag) {
    const Clock& clock = *co_await thisClock();
    std::int64_t last = moved();
    Instant lastChange = clock.now();
    for (;;) {
        co_await sleepFor(std::chrono::seconds(1));
        const std::int64_t now = moved();
        if (now != last) {
            last = now;
            lastChange = clock.now();
            continue;
        }
        if (!watch.giveUp(last, length, inSeconds(clock.now() - lastChange))) continue;
        flag.why = watch.sentence(last, length);
        co_return;
    }
}

}  // namespace vark::detail
