#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "VarkCore/Connection/Keychain.h"
#include "VarkCore/Connection/SharedConnection.h"

namespace vark {

/// When a token that the secret store has lost may be taken back from the record of the connection. Functions
/// only; any thread.
struct SignInRecovery {
    /// The token of the record may be the lost one. It must be proved with `whoami` before it is kept.
    struct VerifyThenAdopt {
        std::string token;
        bool operator==(const VerifyThenAdopt&) const = default;
    };
    struct NothingToDo {
        bool operator==(const NothingToDo&) const = default;
    };
    using Step = std::variant<VerifyThenAdopt, NothingToDo>;

    /// `server` and `clientName` are those of the vark that one wants to be connected to.
    static Step next(const Keychain::TokenRead& keychain, const std::optional<SharedConnection>& shared,
                     std::string_view server, std::string_view clientName);
};

}  // namespace vark
