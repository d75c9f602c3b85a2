#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "VarkCore/Sync/SyncOp.h"

namespace vark {

/// Why a change stopped: whether a person has to do something (`problem`) or nobody has to (`waiting`), and
/// the sentence that says so, with no status number and no words of the network. A value.
struct SyncProblem {
    SyncOp::State state = SyncOp::State::waiting;
    std::string reason;

    /// What a person reads of all that passes by itself.
    static constexpr std::string_view carriesOn = "Vark will carry on in a moment. Nothing to do.";

    /// `client` is the name of the organisation, as far as it is known.
    static SyncProblem from(const std::exception& error, const SyncOp& op, std::string_view client);

    bool operator==(const SyncProblem&) const = default;
};

/// Whether a problem has come to nothing, since the file that it tells of exists no more.
struct StaleProblem {
    /// What the vark says of a path.
    enum class Vark { has, bin, gone, cannotSay };

    static constexpr bool shouldDrop(bool stillOnThisMac, Vark vark) {
        return !stillOnThisMac && vark == Vark::gone;
    }
};

}  // namespace vark
