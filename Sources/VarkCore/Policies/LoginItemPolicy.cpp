#include "VarkCore/Policies/LoginItemPolicy.h"

namespace vark {

LoginItemPolicy::Step LoginItemPolicy::next(bool askedBefore, Status status) {
    if (askedBefore) return Step::leaveAlone;
    switch (status) {
        case Status::enabled:
            return Step::leaveAlone;
        case Status::requiresApproval:
            return Step::sayItNeedsApproval;
        case Status::notRegistered:
            return Step::registerIt;
    }
}

LoginItemPolicy::Step LoginItemPolicy::afterRegistering(Status status) {
    return status == Status::requiresApproval ? Step::sayItNeedsApproval : Step::leaveAlone;
}

}  // namespace vark
