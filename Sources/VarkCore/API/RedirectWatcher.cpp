#include "VarkCore/API/RedirectWatcher.h"

#include <utility>

namespace vark {

RedirectWatcher::RedirectWatcher(const LANRouter& lan, WallClock now) : lan_(lan), now_(std::move(now)) {}

bool RedirectWatcher::follows(const HTTPRedirect& redirect) {
    std::optional<LANRoute> route = lan_.route(redirect.location, now_());
    if (!route) return true;
    const Locked hold(lock_);
    route_ = std::move(route);
    return false;
}

std::optional<LANRoute> RedirectWatcher::takeRoute() {
    const Locked hold(lock_);
    return std::exchange(route_, std::nullopt);
}

}  // namespace vark
