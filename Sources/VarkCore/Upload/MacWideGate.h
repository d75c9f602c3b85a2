#pragma once

#include <filesystem>
#include <optional>
#include <utility>

#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {

/// How many pieces of work may run at once in all processes of this user. A slot is a lock on a file, which
/// the kernel frees when its process dies. It is a courtesy between processes and fails open: without a
/// folder, with one that cannot be used, and when its task is cancelled, work goes ahead without a slot.
/// Shared by reference; outlives the work; any thread.
class MacWideGate {
  public:
    /// Fewer than one slot counts as one. The slots lie in the folder "gate" inside `folder`, which is made
    /// if need be and stays for good: a slot file that is removed would race with another process's lock.
    MacWideGate(int slots, const std::optional<std::filesystem::path>& folder);

    /// The work's own result or failure, after the slot has been given back.
    template <class T>
    Task<T> run(Task<T> work) {
        const Slot slot = co_await takeSlot();
        co_return co_await std::move(work);
    }

    /// The most slots that this process ever held at once.
    int highWaterMark() const;

  private:
    /// A slot, or the leave to go ahead without one. Gives the slot back at its end.
    class Slot {
      public:
        Slot() = default;
        Slot(MacWideGate& gate, FileLock lock);
        Slot(Slot&& other) noexcept
            : gate_(std::exchange(other.gate_, nullptr)), lock_(std::exchange(other.lock_, std::nullopt)) {}
        Slot& operator=(Slot&&) = delete;
        ~Slot();

      private:
        MacWideGate* gate_ = nullptr;
        std::optional<FileLock> lock_;
    };

    Task<Slot> takeSlot();
    /// Nothing when all slots are taken.
    std::optional<Slot> trySlots();

    const int slots_;
    std::optional<std::filesystem::path> folder_;

    mutable Mutex lock_;
    int held_ VARK_GUARDED_BY(lock_) = 0;
    int peak_ VARK_GUARDED_BY(lock_) = 0;
};

}  // namespace vark
