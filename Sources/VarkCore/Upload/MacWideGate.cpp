#include "VarkCore/Upload/MacWideGate.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <system_error>

#include "VarkCore/Concurrency/Clock.h"

namespace vark {
namespace {

constexpr Duration firstPause = std::chrono::milliseconds(20);
constexpr Duration longestWait = std::chrono::milliseconds(500);

}  // namespace

MacWideGate::MacWideGate(int slots, const std::optional<std::filesystem::path>& folder)
    : slots_(std::max(slots, 1)) {
    if (!folder) return;
    folder_ = *folder / "gate";
    // A folder that could not be made shows at the first slot, and the gate stands open.
    std::error_code ignored;
    std::filesystem::create_directories(*folder_, ignored);
}

Task<MacWideGate::Slot> MacWideGate::takeSlot() {
    Duration pause = firstPause;
    for (;;) {
        std::optional<Slot> slot = trySlots();
        if (slot) co_return std::move(*slot);
        try {
            co_await sleepFor(pause);
        } catch (const CancellationError&) {
            co_return Slot();
        }
        pause = std::min(pause * 2, longestWait);
    }
}

std::optional<MacWideGate::Slot> MacWideGate::trySlots() {
    if (!folder_) return Slot();
    try {
        for (int i = 0; i < slots_; ++i) {
            std::optional<FileLock> lock = FileLock::tryExclusive(*folder_ / fmt::format("slot-{}.lock", i));
            if (lock) return Slot(*this, std::move(*lock));
        }
        return std::nullopt;
    } catch (const FileError&) {
        return Slot();
    }
}

int MacWideGate::highWaterMark() const {
    const Locked hold(lock_);
    return peak_;
}

MacWideGate::Slot::Slot(MacWideGate& gate, FileLock lock) : gate_(&gate), lock_(std::move(lock)) {
    const Locked hold(gate.lock_);
    ++gate.held_;
    gate.peak_ = std::max(gate.peak_, gate.held_);
}

MacWideGate::Slot::~Slot() {
    if (gate_ == nullptr) return;
    const Locked hold(gate_->lock_);
    --gate_->held_;
}

}  // namespace vark
