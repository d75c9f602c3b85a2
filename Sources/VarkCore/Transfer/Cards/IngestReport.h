#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "VarkCore/API/Messages/Ingest.h"
#include "VarkCore/Transfer/Queue/QueueModel.h"
#include "VarkCore/Transfer/Walker.h"

namespace vark {

/// What of a card is not in the vark, and so whether the card may be cleared. Made of what the queue keeps of
/// the card (its items, `IngestInfo::leftOut` and `IngestInfo::unlisted`) and of what lies on it now. A
/// value.
struct CardVerdict {
    struct Missing {
        enum class Kind : std::uint8_t {
            /// Passed over, or left by a person as the vark has it.
            skipped,
            leftOut,
            notSent
        };

        Kind kind = Kind::notSent;
        /// On the card.
        std::string source;
        std::string why;
        /// Of a file, as far as it is known.
        std::int64_t size = 0;
        bool operator==(const Missing&) const = default;
    };

    std::string drive;
    /// Files that have landed and been checked.
    std::int64_t landed = 0;
    /// What is not in the vark as it is on the card, or was on it when the ingest began.
    std::vector<Missing> missing;
    /// False when it is made of what the queue keeps alone.
    bool wasLookedThrough = false;

    /// Of a job with an ingest. `card` is what lies on it now; nothing when it cannot be looked through.
    static CardVerdict of(const TransferJob& job, const std::optional<Walker::Result>& card);
    bool isSafe() const { return missing.empty() && wasLookedThrough; }
    std::string sentence() const;
    bool operator==(const CardVerdict&) const = default;
};

/// What the vark is told when an ingest ends: all that the verdict misses. A value.
struct IngestReport {
    std::vector<IngestFile> skipped;
    std::vector<std::string> leftOut;
    std::vector<IngestFile> notSent;

    static IngestReport of(const TransferJob& job, const CardVerdict& verdict);
    /// For the diary: "2 files skipped, 1 path left out, 0 files not sent".
    std::string summary() const;
    bool operator==(const IngestReport&) const = default;
};

/// What a walk of a card has passed over, as the ingest keeps it. An empty folder is nothing to keep.
std::vector<IngestInfo::Unlisted> unlistedOf(const Walker::Result& card);

/// Takes what a person wants to leave out, paths relative to the card, out of what a walk has found. Answers
/// those of them that name nothing.
std::vector<std::string> leaveOut(Walker::Result& card, const std::vector<std::string>& paths);

}  // namespace vark
