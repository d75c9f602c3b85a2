#pragma once

#include <optional>
#include <string>
#include <vector>

#include "VarkCore/API/Ingest.h"
#include "VarkCore/Transfer/QueueModel.h"
#include "VarkCore/Transfer/Walker.h"

namespace vark {

/// What the vark is told when an ingest ends. A value.
struct IngestReport {
    /// What a person decided to leave as the vark has it.
    std::vector<IngestFile> skipped;
    std::vector<std::string> leftOut;
    std::vector<IngestFile> notSent;

    /// Of a job with an ingest. `card` is what lies on it now, without what is left out; nothing when it
    /// cannot be looked through.
    static IngestReport of(const TransferJob& job, const std::optional<Walker::Result>& card);
    /// For the diary: "2 files skipped, 1 path left out, 0 files not sent".
    std::string summary() const;
    bool operator==(const IngestReport&) const = default;
};

/// Whether a card may be cleared: what lies on it now, held against what has landed. A value.
struct CardVerdict {
    struct Missing {
        /// On the card.
        std::string source;
        std::string why;
        /// A person decided so.
        bool isChoice = false;
        bool operator==(const Missing&) const = default;
    };

    std::string drive;
    /// Files that have landed and been checked.
    std::int64_t landed = 0;
    /// What is not in the vark as it is on the card.
    std::vector<Missing> missing;
    /// False when the queue alone was looked at.
    bool wasLookedThrough = false;

    /// As for `IngestReport::of`.
    static CardVerdict of(const TransferJob& job, const std::optional<Walker::Result>& card);
    bool isSafe() const { return missing.empty() && wasLookedThrough; }
    /// Whether something is missing that nobody decided to leave.
    bool lacksFiles() const;
    std::string sentence() const;
    bool operator==(const CardVerdict&) const = default;
};

/// Takes what a person wants to leave out, paths relative to the card, out of what a walk has found. Answers
/// those of them that name nothing.
std::vector<std::string> leaveOut(Walker::Result& card, const std::vector<std::string>& paths);

}  // namespace vark
