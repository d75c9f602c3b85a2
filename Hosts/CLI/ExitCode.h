#pragma once

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

}  // namespace vark::cli
