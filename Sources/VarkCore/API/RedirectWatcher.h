#pragma once

#include <optional>

#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Foundation/Time/Date.h"
#include "VarkCore/LAN/LANRouter.h"
#include "VarkCore/Services/HTTPSession.h"

namespace vark {

/// Decides for one download which redirects the session follows. One that leads to a node of this network is
/// refused, and its route kept for whoever carries the bytes through the node. Shared by the download and the
/// session that asks; any thread; outlived by the router.
class RedirectWatcher {
  public:
    RedirectWatcher(const LANRouter& lan, WallClock now);

    /// Whether the session goes on by itself.
    bool follows(const HTTPRedirect& redirect);
    /// The route of the redirect that was refused, if one was. Forgets it.
    std::optional<LANRoute> takeRoute();

  private:
    const LANRouter& lan_;
    const WallClock now_;
    Mutex lock_;
    std::optional<LANRoute> route_ VARK_GUARDED_BY(lock_);
};

}  // namespace vark
