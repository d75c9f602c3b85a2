#pragma once

#include <optional>
#include <string>

#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/LAN/LANRouter.h"
#include "VarkCore/LAN/LANTransfer.h"
#include "VarkPlatform/Linux/TLSDialer.h"

namespace vark {

/// What one process has of the nodes on its network: the table of them, which whoever looks for nodes fills,
/// and the means to talk to them. Owned by the host, and outlives the API that goes through it.
struct OfficeNodes {
    /// A node is trusted by what the vark is trusted by.
    explicit OfficeNodes(const std::optional<std::string>& authorityFile) : dialer(authorityFile) {}

    LANRouter router;
    TLSDialer dialer;
    /// For pieces of files, each of which takes a moment.
    BlockingPool files{4};
    LANTransfer transfer{dialer, files};
};

}  // namespace vark
