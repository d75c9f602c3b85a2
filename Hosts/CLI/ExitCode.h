#pragma once

#include "Hosts/CLI/Names.h"
#include "VarkApp/Outcome.h"

namespace vark::cli {

/// How a run of `vark` ended, for whoever started it.
enum class ExitCode {
    allLanded = 0,
    somethingFailed = 1,
    usage = 2,
    notConnected = 3,
    decisionWaits = 4,
    /// Another run has taken it on, and this one did not wait for the end.
    handedOver = 5,
    interrupted = 130,
    readerGone = 141,
};

constexpr ExitCode exitCodeOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::done:
            return ExitCode::allLanded;
        case Outcome::failed:
            return ExitCode::somethingFailed;
        case Outcome::misuse:
            return ExitCode::usage;
        case Outcome::notConnected:
            return ExitCode::notConnected;
        case Outcome::decisionWaits:
            return ExitCode::decisionWaits;
    }
}

}  // namespace vark::cli
