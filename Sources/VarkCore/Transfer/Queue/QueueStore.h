#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Time/Date.h"
#include "VarkCore/Transfer/Queue/QueueModel.h"

namespace vark {

class Locations;

/// The owner of `queue.json`. Any thread. It repairs nothing: a damaged file fails to load and stays until
/// the next save.
///
/// Saving has two halves, so that an engine may encode on its own thread and leave the writing to another
/// one. Writes do not wait for each other: the newest that reaches the disk counts, and an older one that
/// comes later is dropped.
///
///     QueueStore::Snapshot snapshot = store.encode(job);   // where the job lives
///     store.write(snapshot);                               // anywhere
class QueueStore {
  public:
    /// The queue at one moment. Later ones have higher numbers.
    struct Snapshot {
        std::uint64_t sequence = 0;
        /// Nothing when there was no job.
        std::optional<std::string> bytes;
    };

    explicit QueueStore(std::filesystem::path url, WallClock now = systemDate,
                        Durability durability = Durability::synced);

    static std::filesystem::path defaultURL(const Locations& locations);

    const std::filesystem::path& url() const { return url_; }

    /// Nothing when there is no file or no job in it; items that were in flight are queued again. Fails with
    /// `FileError` or `DecodingError`.
    std::optional<TransferJob> load() const;
    /// Without a job the file goes. Fails with `FileError`.
    void save(const TransferJob* job) { write(encode(job)); }

    Snapshot encode(const TransferJob* job);
    /// Fails with `FileError`, which names the queue's own file. Does nothing when a later snapshot has been
    /// written.
    void write(const Snapshot& snapshot);

    /// What `load` makes of these bytes.
    static std::optional<TransferJob> decode(std::string_view bytes);

  private:
    void replaceFile(const Snapshot& snapshot);
    /// Runs `change` unless a later snapshot is in place already. Whether it did.
    template <class Change>
    bool putInPlace(const Snapshot& snapshot, Change change);

    const std::filesystem::path url_;
    const WallClock now_;
    const Durability durability_;
    std::atomic<std::uint64_t> lastEncoded_ = 0;
    /// Held while a file takes its place, and not while its bytes are written, which may take long.
    Mutex lock_;
    std::uint64_t lastWritten_ VARK_GUARDED_BY(lock_) = 0;
};

}  // namespace vark
