#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <unordered_map>

#include "VarkCore/Transfer/Queue/QueueModel.h"

namespace vark {

/// The whole queue in numbers.
struct Overall {
    std::int64_t bytesTotal = 0;
    std::int64_t bytesDone = 0;
    std::int64_t filesTotal = 0;
    std::int64_t filesVerified = 0;
    std::int64_t filesFailed = 0;
    std::int64_t filesConflict = 0;
    std::int64_t filesSkipped = 0;
    /// Of the verified ones, those that had changed by the time they landed.
    std::int64_t filesChanged = 0;
    std::int64_t bytesVerified = 0;
    /// Bytes a second.
    double rate = 0;
    std::optional<double> secondsLeft;

    double fraction() const {
        return bytesTotal < 1 ? 0 : static_cast<double>(bytesDone) / static_cast<double>(bytesTotal);
    }
    std::int64_t remaining() const {
        return filesTotal - filesVerified - filesFailed - filesConflict - filesSkipped;
    }
    bool allSettled() const { return remaining() == 0; }
    bool operator==(const Overall&) const = default;
};

/// One thing that the person added, in numbers.
struct EntryProgress {
    std::int64_t bytesDone = 0;
    std::int64_t bytesTotal = 0;
    std::int64_t files = 0;
    std::int64_t verified = 0;
    std::int64_t bytesVerified = 0;
    std::int64_t failed = 0;
    std::int64_t conflicts = 0;
    std::int64_t skipped = 0;
    std::int64_t changed = 0;
    std::int64_t inFlight = 0;
    std::int64_t hashing = 0;

    double fraction() const {
        if (bytesTotal >= 1) return static_cast<double>(bytesDone) / static_cast<double>(bytesTotal);
        return isFinished() ? 1.0 : 0.0;
    }
    bool isFinished() const { return verified + skipped == files; }
    bool operator==(const EntryProgress&) const = default;
};

/// The totals of a queue, kept up to date as its items change, so that no tick and no settled file costs a
/// walk over all of them. Whoever changes an item takes its old share out and puts its new one in. Touched by
/// the engine alone.
class QueueTotals {
  public:
    /// What one item adds to the totals.
    struct Share {
        std::int64_t size = 0;
        std::int64_t done = 0;
        ItemState state = ItemState::queued;
        bool changed = false;
    };
    void addEntry(const UUID& entryID) { entries_.try_emplace(entryID); }
    void add(const UUID& entryID, const Share& share) { apply(entryID, share, 1); }
    void remove(const UUID& entryID, const Share& share) { apply(entryID, share, -1); }
    void clear();

    /// Without `rate` and `secondsLeft`, which are not a matter of counting.
    const Overall& overall() const { return overall_; }
    const std::unordered_map<UUID, EntryProgress>& entries() const { return entries_; }
    std::int64_t count(ItemState state) const { return states_[static_cast<std::size_t>(state)]; }

  private:
    void apply(const UUID& entryID, const Share& share, std::int64_t sign);

    Overall overall_;
    std::unordered_map<UUID, EntryProgress> entries_;
    std::array<std::int64_t, static_cast<std::size_t>(ItemState::failed) + 1> states_{};
};

}  // namespace vark
