#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "VarkBox/HTTP/Exchange.h"
#include "VarkBox/Store/CheckingThread.h"
#include "VarkBox/Store/Database.h"
#include "VarkBox/Store/ObjectFiles.h"
#include "VarkBox/Store/OpenUpload.h"

namespace vark::box {

struct UploadSettings {
    std::int64_t chunkSize = 8 << 20;
    /// Files below this are checked within the request that finishes them.
    std::int64_t checkInlineBelow = 1 << 20;
};

/// What `begin` has to say of a file.
struct BeginAnswer {
    /// This very file is at this path already; nothing was opened.
    bool exists = false;
    std::string uploadID{};
    std::int64_t chunkSize = 0;
    std::vector<std::int64_t> have{};
};

struct UploadReport {
    UploadState state = UploadState::receiving;
    std::string path;
    std::string error;
    std::int64_t receivedBytes = 0;
    std::int64_t totalBytes = 0;
};

/// The road of a file into the vark: announced, received in chunks, checked, landed. Any thread may call.
/// Bytes are believed only after the check, and a file lands only with bytes that were. What has begun
/// outlives the process.
class Uploads {
  public:
    Uploads(Database& database, const ObjectFiles& files, UploadSettings settings);
    Uploads(const Uploads&) = delete;
    Uploads& operator=(const Uploads&) = delete;

    /// Refuses with 409 where another file stands and is not to be replaced.
    BeginAnswer begin(const UploadRequest& file);
    /// Takes one chunk. Refuses an unknown upload, an index out of range and a wrong length at once.
    std::unique_ptr<BodySink> receive(std::string_view uploadID, std::int64_t index, std::uint64_t length);
    /// Refuses with 409 while chunks are missing. The answer may still be "checking".
    UploadReport finish(std::string_view uploadID);
    UploadReport status(std::string_view uploadID);
    void cancel(std::string_view uploadID);

    /// Faults: what a vark may do to an upload. Both pass over an upload that is not there.
    void lose(std::string_view uploadID);
    void failNextCheck(std::string_view uploadID);

  private:
    friend class ChunkSink;

    void recover();
    UploadRecord require(std::string_view uploadID);
    std::shared_ptr<OpenUpload> open(const UploadRecord& record);
    std::vector<std::int64_t> heldChunks(const OpenUpload& upload) const;
    bool filesHold(const UploadRecord& upload) const;
    void forget(std::string_view uploadID);
    void remove(std::string_view uploadID);

    void chunkLanded(const std::shared_ptr<OpenUpload>& upload, std::int64_t index);
    void checkLater(std::shared_ptr<OpenUpload> upload);
    void check(OpenUpload& upload, const std::stop_token& stop);
    void land(const UploadRecord& upload);
    void fail(const UploadRecord& upload, std::string_view sentence);

    Database& database_;
    const ObjectFiles& files_;
    const UploadSettings settings_;

    // May be held while a turn of the database is taken, never the other way round.
    Mutex lock_;
    std::unordered_map<std::string, std::shared_ptr<OpenUpload>> open_ VARK_GUARDED_BY(lock_);

    // Last: its work uses all of the above.
    CheckingThread thread_;
};

}  // namespace vark::box
