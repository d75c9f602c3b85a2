#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "VarkCore/API/VarkAPI.h"
#include "VarkCore/Foundation/Progress.h"
#include "VarkCore/Upload/ChunkPlan.h"
#include "VarkCore/Upload/ChunkRetry.h"
#include "VarkCore/Upload/FileHasher.h"

namespace vark {

class BlockingPool;
class MacWideGate;
class UploadGate;

/// Brings one local file to one path in the vark, chunk after chunk. There is no queue and nothing on disk:
/// what the vark says that it has is the only memory of what has arrived. A value with fields to tune; it and
/// all that it refers to outlive its tasks, of which any number may run.
struct VarkUploader {
    /// The slots of the gates that all uploaders of one process, and of one machine, share.
    static constexpr int slots = 3;

    /// `pool` is for hashing. The slot of the machine is taken first, then that of the process.
    VarkUploader(VarkAPI& vark, BlockingPool& hashing, UploadGate& ofTheProcess, MacWideGate& ofTheMachine)
        : api(vark), pool(hashing), gate(&ofTheProcess), macWide(&ofTheMachine) {}

    VarkAPI& api;
    BlockingPool& pool;
    /// Seconds that the vark may take to check a file that has arrived.
    double landingTimeout = 1200;
    /// Seconds to the first look whether it has; the pauses grow to 5, or to this if it is longer.
    double pollInterval = 0.5;
    UploadGate* gate;
    MacWideGate* macWide;
    int triesPerChunk = 3;
    /// Seconds to wait behind the try of this number.
    std::function<double(int attempt)> retryPause = ChunkRetry::pause;

    /// When it returns, the file is at that path. `progress` may be null; it moves by whole chunks, and falls
    /// back when the vark has lost some. Fails with `VarkAPIError` (`nameTaken` when something else stands
    /// there and must not be replaced), `FileError`, `ChunkPlan::BadPlan` or `CancellationError`; the vark
    /// keeps what has arrived, and the next call goes on with it. A 504 means that the vark is still checking
    /// the file, and not that it failed.
    Task<void> send(std::filesystem::path file, std::string to, bool replace,
                    std::shared_ptr<Progress> progress) const;

    /// Hashes a file on the pool. A cancelled task stops it.
    Task<FileHasher::Look> lookAt(std::filesystem::path file) const;

  private:
    Task<void> sendChunks(std::filesystem::path file, BeginResult::Start start, FileStamp stamp,
                          std::shared_ptr<Progress> progress) const;
    Task<void> sendChunk(std::filesystem::path file, std::string uploadID, std::int64_t index,
                         ChunkPlan::Range range) const;
    Task<void> land(std::string uploadID, std::string path) const;
};

}  // namespace vark
