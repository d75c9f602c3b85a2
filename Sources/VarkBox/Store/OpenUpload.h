#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <stop_token>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "VarkBox/Store/Hasher.h"
#include "VarkBox/Store/ObjectFiles.h"
#include "VarkBox/Store/UploadRecords.h"
#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark::box {

/// One chunk while it is being received. Whoever writes bytes of the chunk or marks it as landed holds
/// `lock`, and nobody writes once `landed` is set: the bytes of a chunk that has landed never change, so they
/// may be hashed.
struct ChunkSlot {
    explicit ChunkSlot(bool hasLanded) : landed(hasLanded) {}

    Mutex lock;
    bool landed VARK_GUARDED_BY(lock);
};

/// What is known in memory of an upload that has not ended. Shared by the requests and the checking thread,
/// each of which may call; `Uploads` owns it until the upload ends.
class OpenUpload {
  public:
    OpenUpload(UploadRecord record, const std::vector<std::int64_t>& held);

    /// Held while the bytes are hashed and the end of the upload is decided.
    Mutex checking;

    /// As it was when the upload was opened; state and flags may have changed since.
    const UploadRecord& record() const { return record_; }

    std::shared_ptr<ChunkSlot> slot(std::int64_t index);
    void noteLanded(std::int64_t index);
    std::vector<std::int64_t> held() const;
    std::vector<std::int64_t> missing() const;
    std::int64_t receivedBytes() const;

    /// Hashes on through the chunks that have landed without a gap.
    void hashWhatLanded(const ObjectFiles& files, const std::stop_token& stop) VARK_REQUIRES(checking);
    /// Whether all bytes were hashed and the hash is the one that was announced. Ends the hash.
    bool hashIsRight() VARK_REQUIRES(checking);

    /// Whether a turn of the checking thread is on its way already.
    std::atomic<bool> hashingQueued = false;
    /// A fault: the check will say that the bytes are wrong.
    std::atomic<bool> checkMustFail = false;

  private:
    bool holds(std::int64_t index) const;
    std::vector<std::int64_t> indexes(bool held) const;

    const UploadRecord record_;

    mutable Mutex lock_;
    std::vector<bool> held_ VARK_GUARDED_BY(lock_);
    std::int64_t receivedBytes_ VARK_GUARDED_BY(lock_) = 0;
    std::unordered_map<std::int64_t, std::weak_ptr<ChunkSlot>> slots_ VARK_GUARDED_BY(lock_);

    Hasher hasher_ VARK_GUARDED_BY(checking);
    std::int64_t hashedBytes_ VARK_GUARDED_BY(checking) = 0;
};

}  // namespace vark::box
