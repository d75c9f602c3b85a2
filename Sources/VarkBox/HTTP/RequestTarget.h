#pragma once

#include "VarkBox/HTTP/Exchange.h"

namespace vark::box {

/// Fills in the decoded pieces of the path and of the query from the request's target. False when the target
/// is no path, or is not UTF-8 once it is decoded.
bool takeTargetApart(BoxRequest& request);

}  // namespace vark::box
