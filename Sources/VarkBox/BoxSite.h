#pragma once

#include <string>

#include "VarkBox/HTTP/Exchange.h"
#include "VarkBox/HTTP/RequestLog.h"
#include "VarkBox/Routes/Router.h"
#include "VarkBox/Routes/Services.h"

namespace vark::box {

/// Both listeners of the box as the server sees them: the calls, with the faults in front of them and the
/// request log behind them. The control calls meet no fault, or nobody could take one back.
class BoxSite : public Site {
  public:
    BoxSite(Services& services, RequestLog& log);

    Visit arrive(BoxRequest request) override;
    void record(const RequestRecord& record) noexcept override { log_.append(record); }

  private:
    void strike(const BoxRequest& request, Visit& visit);

    Services& services_;
    RequestLog& log_;
    Router application_;
    Router chunks_;
};

}  // namespace vark::box
