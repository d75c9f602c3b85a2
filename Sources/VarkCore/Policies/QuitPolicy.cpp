#include "VarkCore/Policies/QuitPolicy.h"

namespace vark {

QuitPolicy::Decision QuitPolicy::decide(const Situation& situation) {
    const bool asks =
        situation.reason == QuitReason::person && situation.transferActive && !situation.confirmed;
    return asks ? Decision::askFirst : Decision::quitNow;
}

}  // namespace vark
