#include "VarkCore/Policies/MountDecision.h"

#include <fmt/format.h>

#include <array>

namespace vark {
namespace {

/// In the order of the enumeration.
constexpr std::array<std::string_view, 8> reasonNames = {
    "launch",  "refresh", "connected", "switched", "signedOutByVark", "accessRevoked", "disconnectedByPerson",
    "quitting"};

MountPlan planByToken(const MountDecision::Situation& situation) {
    if (!situation.finderOn) return MountPlan(MountPlan::TakeAway{});
    if (situation.token.token()) return MountPlan(MountPlan::Bring{});
    if (const auto* unreadable = std::get_if<Keychain::TokenRead::Unreadable>(&situation.token.which())) {
        return MountPlan(MountPlan::LeaveAlone{
            fmt::format("could not read this Mac's token (keychain said {}), so the vark is left in the "
                        "Finder as it is",
                        unreadable->status)});
    }
    if (!situation.stored) return MountPlan(MountPlan::TakeAway{});
    return MountPlan(
        MountPlan::LeaveAlone{"no token in the keychain, so the vark is left in the Finder as it is"});
}

}  // namespace

std::string_view text(SyncReason reason) {
    return reasonNames[static_cast<std::size_t>(reason)];
}

MountPlan MountDecision::plan(const Situation& situation) {
    switch (situation.reason) {
        case SyncReason::launch:
        case SyncReason::refresh:
        case SyncReason::connected:
        case SyncReason::switched:
            return planByToken(situation);
        case SyncReason::signedOutByVark:
            return MountPlan(MountPlan::Disconnect{"the vark is not accepting this Mac at the moment"});
        case SyncReason::accessRevoked:
        case SyncReason::disconnectedByPerson:
            return MountPlan(MountPlan::TakeAway{});
        case SyncReason::quitting:
            return MountPlan(
                MountPlan::LeaveAlone{"Vark is closing; the vark stays in the Finder with everything in it"});
    }
}

}  // namespace vark
