#pragma once

#include <functional>
#include <optional>
#include <string>

#include "VarkCore/Errors/VarkAPIError.h"
#include "VarkCore/Foundation/Time/Date.h"
#include "VarkCore/Foundation/URL.h"
#include "VarkCore/LAN/LANRouter.h"
#include "VarkCore/LAN/LANTransfer.h"
#include "VarkCore/Services/HTTPSession.h"

namespace vark {

/// Asked for the device's token at every call that carries it, so that a new one takes effect at once; from
/// any thread.
using TokenProvider = std::function<std::optional<std::string>()>;

/// What everything that goes to one vark goes by: the internet, and the nodes of this network. Owned by the
/// API; any thread.
struct VarkLine {
    HTTPSession& session;
    LANRouter& lan;
    LANTransfer& nodes;
    const WallClock now;
    const URL baseURL;
    const TokenProvider token;

    /// Fails with `notConnected` when no token is at hand.
    HTTPHeader authorization() const {
        const std::optional<std::string> current = token();
        if (!current) throw VarkAPIError::notConnected();
        return {"Authorization", "Bearer " + *current};
    }
};

}  // namespace vark
