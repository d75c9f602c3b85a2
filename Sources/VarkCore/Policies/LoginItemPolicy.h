#pragma once

#include <cstdint>

namespace vark {

/// Whether the application has itself started at sign-in: it asks for that once, and a person who turned it
/// off stays obeyed. Pure.
struct LoginItemPolicy {
    enum class Status : std::uint8_t { enabled, requiresApproval, notRegistered };
    enum class Step : std::uint8_t { leaveAlone, registerIt, sayItNeedsApproval };

    static Step next(bool askedBefore, Status status);
    static Step afterRegistering(Status status);
};

}  // namespace vark
