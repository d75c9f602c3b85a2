#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Hosts/CLI/Display/SendDisplay.h"
#include "VarkApp/Queue/Asking.h"

namespace vark::cli {

/// How long a paused queue is waited for where nobody sits who could resume it.
constexpr Duration longestPauseUnseen = std::chrono::seconds(60);

/// What another run has taken on for this one.
struct Followed {
    /// The answer to the request that handed it over.
    QueueAnswer taken;
    /// What the other run decides by about what waits for a decision.
    std::optional<ConflictRule> rule{};
    /// It is a card, which is not done with before it is closed.
    bool isCard = false;
    /// Whether somebody sits at this terminal who can lift a pause.
    bool somebodyIsThere = false;

    std::vector<UUID> entries() const;
};

/// How a command ends whose entries stand so. What stands nowhere any more has not landed, as far as anybody
/// knows.
ExitCode outcomeOf(const QueueView& view, bool wasLeftBehind);

/// Returns the exit code when all of it has settled, as the display has been told; nothing when the run that
/// had it has ended, and then `lock` is this one's. `surroundings`, `display` and `lock` outlive the task.
Task<std::optional<ExitCode>> follow(Surroundings& surroundings, SendDisplay& display, Followed followed,
                                     QueueLock& lock);

/// Tells how it ended, when all of it has settled in the saved queue; nothing when there is something to do.
std::optional<ExitCode> endOf(const Followed& followed, const std::optional<TransferJob>& saved,
                              SendDisplay& display);

}  // namespace vark::cli
