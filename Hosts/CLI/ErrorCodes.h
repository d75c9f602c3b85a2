#pragma once

#include <string_view>

#include "Hosts/CLI/Names.h"
#include "VarkCore/Errors/VarkAPIError.h"

namespace vark::cli {

/// What programs are told beside the sentence.
inline std::string_view codeOf(const VarkAPIError& error) {
    if (error.isSignOut()) return "signedOut";
    if (error.isNameTaken()) return "nameTaken";
    if (error.isGone()) return "notThere";
    if (std::holds_alternative<VarkAPIError::Transport>(error.which())) return "unreachable";
    return error.isRetryable() ? "notNow" : "refused";
}

}  // namespace vark::cli
