#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VarkCore/API/Messages/BinnedItem.h"
#include "VarkCore/API/Messages/ChildAnswer.h"
#include "VarkCore/API/Messages/DeviceSignIn.h"
#include "VarkCore/API/Messages/DiagnosticsReport.h"
#include "VarkCore/API/Messages/Ingest.h"
#include "VarkCore/API/Messages/Items.h"
#include "VarkCore/API/Messages/Jobs.h"
#include "VarkCore/API/Messages/Shares.h"
#include "VarkCore/API/Messages/UploadAnswers.h"
#include "VarkCore/API/Messages/VarkFolder.h"
#include "VarkCore/API/Messages/WhoAmI.h"
#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Errors/VarkAPIError.h"

namespace vark {

class ContentSink;
class TokenBucket;
class VarkDownload;

/// Everything that can be asked of the vark. Outlives the tasks that use it; called from many of them at
/// once. Every operation may fail with `VarkAPIError` or end in `CancellationError`. Where an operation has a
/// behaviour here, it is that of a vark which does not know it.
class VarkAPI {
  public:
    /// Told the bytes of a chunk that have gone so far, from any thread. Must not throw.
    using ChunkProgress = std::function<void(std::int64_t)>;

    virtual ~VarkAPI() = default;

    virtual Task<void> sendDiagnostics(DiagnosticsReport report);
    virtual Task<WhoAmI> whoami() = 0;

    virtual Task<DeviceClaim> claim(std::string code, std::string deviceName) = 0;
    virtual Task<DeviceBegin> beginDeviceSignIn(std::string deviceName) = 0;
    virtual Task<DevicePoll> pollDeviceSignIn(std::string nonce) = 0;

    virtual Task<std::vector<VarkFolder>> folders(std::string path) = 0;
    virtual Task<std::vector<std::string>> tags() = 0;
    /// Answers how many were tagged.
    virtual Task<std::int64_t> tagFiles(std::vector<std::string> paths, std::vector<std::string> tags) = 0;

    virtual Task<VarkShare> createShare(ShareRequest request) = 0;
    virtual Task<bool> sharesSupported() = 0;
    virtual Task<std::vector<VarkJob>> findJobs(std::string query) = 0;
    /// Answers how many were filed.
    virtual Task<std::int64_t> fileAgainstJob(std::vector<std::string> paths, std::int64_t jobID) = 0;

    /// Answers the folder's path, as do `rename` and `move` for what they moved; the one given when the vark
    /// does not say.
    virtual Task<std::string> createFolder(std::string path) = 0;
    virtual Task<VarkItem> item(std::int64_t id) = 0;
    virtual Task<VarkItem> item(std::string path) = 0;
    /// Nothing when the path is not in the Bin, or when the vark cannot say.
    virtual Task<std::optional<BinnedItem>> binned(std::string path);
    virtual Task<ChildAnswer> child(std::int64_t ofParent, std::string named);
    /// An empty cursor asks for the first page; `ahead` asks for first pages of sub-folders too.
    virtual Task<VarkPage> children(std::int64_t of, std::string cursor, std::int64_t limit, bool ahead) = 0;
    /// No `since` asks from the beginning; an empty one is sent as it is.
    virtual Task<VarkChanges> changes(std::int64_t under, std::optional<std::string> since,
                                      std::int64_t limit) = 0;
    /// Fetches the bytes of an item into a file. Fails at once when no token is at hand; everything else that
    /// goes wrong is the end of the download.
    virtual std::shared_ptr<VarkDownload> download(std::int64_t id, std::filesystem::path to) = 0;
    /// Hands the bytes of an item to `sink`, which outlives the call, from `sink.next()` on where the vark
    /// sends parts. Nobody but the caller knows whether the whole is what it should be.
    virtual Task<void> fetch(std::int64_t id, ContentSink& sink) = 0;
    virtual Task<std::string> rename(std::string path, std::string to) = 0;
    virtual Task<std::string> move(std::string path, std::string toFolder) = 0;
    /// Answers where the item now lies; empty when the vark does not say.
    virtual Task<std::string> bin(std::string path) = 0;

    /// `mtime` in seconds since 1970.
    virtual Task<BeginResult> begin(std::string path, std::int64_t size, std::string sha256, double mtime,
                                    bool replace) = 0;
    virtual Task<BeginResult> begin(std::string path, std::int64_t size, std::string sha256, double mtime,
                                    bool replace, std::optional<std::int64_t> ingestID,
                                    std::optional<std::string> source);
    virtual Task<IngestStart> ingestBegin(std::string drive, std::string destination, std::int64_t files,
                                          std::int64_t bytes, bool emailMe);
    virtual Task<void> ingestFinish(std::int64_t id, std::vector<IngestFile> skipped,
                                    std::vector<std::string> leftOut, std::vector<IngestFile> notSent);
    /// Returns once the vark has answered for the chunk. `limiter` may be null, and outlives the call;
    /// `progress` goes back to 0 when a try is given up for another way.
    virtual Task<void> putChunk(std::string uploadID, std::int64_t index, std::filesystem::path file,
                                std::int64_t offset, std::int64_t length, TokenBucket* limiter,
                                ChunkProgress progress) = 0;
    /// Answers the path at which the file landed; empty when the vark does not say.
    virtual Task<std::string> finish(std::string uploadID) = 0;
    virtual Task<UploadStatus> status(std::string uploadID) = 0;
    virtual Task<void> cancel(std::string uploadID) = 0;

    /// A link for anyone, with no end and no message.
    Task<VarkShare> createShare(std::vector<std::string> paths);
    /// Without looking ahead.
    Task<VarkPage> children(std::int64_t of, std::string cursor, std::int64_t limit);
};

}  // namespace vark
