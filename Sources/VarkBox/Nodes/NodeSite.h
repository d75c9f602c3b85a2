#pragma once

#include "VarkBox/HTTP/Exchange.h"
#include "VarkBox/HTTP/Faults.h"
#include "VarkBox/HTTP/RequestLog.h"
#include "VarkBox/Nodes/Uplink.h"
#include "VarkBox/Routes/Router.h"

namespace vark::box {

/// Both listeners of a node as the server sees them. What comes to the node's own goes on to the listener of
/// its vark that answers it; faults stand in front of that, and the control calls meet none.
class NodeSite : public Site {
  public:
    /// Without an application the node does not answer calls under "/api".
    NodeSite(const Uplink& chunks, const Uplink* application, Faults& faults, RequestLog& log);

    Visit arrive(BoxRequest request) override;
    void record(const RequestRecord& record) noexcept override { log_.append(record); }

  private:
    const Uplink* wayFor(const BoxRequest& request) const;

    const Uplink& chunks_;
    const Uplink* application_;
    Faults& faults_;
    RequestLog& log_;
    Router control_{nullptr};
};

}  // namespace vark::box
