#include "VarkCore/Transfer/Queue/QueueTotals.h"

namespace vark {

void QueueTotals::clear() {
    overall_ = Overall();
    entries_.clear();
    states_.fill(0);
}

void QueueTotals::apply(const UUID& entryID, const Share& share, std::int64_t sign) {
    EntryProgress& entry = entries_[entryID];
    overall_.filesTotal += sign;
    overall_.bytesTotal += sign * share.size;
    overall_.bytesDone += sign * share.done;
    entry.files += sign;
    entry.bytesTotal += sign * share.size;
    entry.bytesDone += sign * share.done;
    states_[static_cast<std::size_t>(share.state)] += sign;
    switch (share.state) {
        case ItemState::verified:
            overall_.filesVerified += sign;
            overall_.bytesVerified += sign * share.size;
            entry.verified += sign;
            entry.bytesVerified += sign * share.size;
            if (share.changed) {
                overall_.filesChanged += sign;
                entry.changed += sign;
            }
            break;
        case ItemState::skipped:
            overall_.filesSkipped += sign;
            entry.skipped += sign;
            break;
        case ItemState::failed:
            overall_.filesFailed += sign;
            entry.failed += sign;
            break;
        case ItemState::conflict:
            overall_.filesConflict += sign;
            entry.conflicts += sign;
            break;
        case ItemState::hashing:
            entry.hashing += sign;
            entry.inFlight += sign;
            break;
        case ItemState::uploading:
        case ItemState::checking:
            entry.inFlight += sign;
            break;
        case ItemState::queued:
            break;
    }
}

}  // namespace vark
