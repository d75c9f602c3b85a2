#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VarkCore/API/Answers.h"
#include "VarkCore/API/ChunkSender.h"
#include "VarkCore/API/NodeCalls.h"
#include "VarkCore/API/VarkAPI.h"
#include "VarkCore/API/VarkDownload.h"
#include "VarkCore/API/VarkLine.h"
#include "VarkCore/API/WaysTaken.h"
#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/Concurrency/TaskScope.h"

namespace vark {

/// The vark over HTTP, and through the nodes of this network where there are some. One for each connection: a
/// process makes a new one when its connection changes. Called from many tasks at once, on any executor, and
/// outlives them; its end cancels its downloads and awaits them.
class HTTPVarkAPI final : public VarkAPI {
  public:
    /// What the API needs of the process that it runs in. All of it outlives the API.
    struct Host {
        /// Makes the session of the API, which says what is the same in all its requests.
        std::function<std::shared_ptr<HTTPSession>(HTTPSessionSettings)> makeSession;
        /// Names this process to the vark.
        std::string via;
        /// A file of certificates that are trusted beside the system's own.
        std::optional<std::string> authorityFile;
        LANRouter& lan;
        LANTransfer& nodes;
        /// Each chunk on its way holds a thread while it is read, so the pool serves nothing else and has a
        /// thread for each chunk that may be on its way.
        BlockingPool& writers;
        /// Where downloads run.
        Executor& executor;
        Clock& clock;
        WallClock now = systemDate;
        /// Told the way of each chunk that the vark has taken.
        WaysTaken* ways = nullptr;
    };
    HTTPVarkAPI(const Host& host, URL baseURL, TokenProvider token);

    /// Written before the first chunk is sent.
    StallWatch stallWatch;

    Task<void> sendDiagnostics(DiagnosticsReport report) override;
    Task<WhoAmI> whoami() override;
    Task<DeviceClaim> claim(std::string code, std::string deviceName) override;
    Task<DeviceBegin> beginDeviceSignIn(std::string deviceName) override;
    Task<DevicePoll> pollDeviceSignIn(std::string nonce) override;
    Task<std::vector<VarkFolder>> folders(std::string path) override;
    Task<std::vector<std::string>> tags() override;
    Task<std::int64_t> tagFiles(std::vector<std::string> paths, std::vector<std::string> tags) override;
    using VarkAPI::createShare;
    Task<VarkShare> createShare(ShareRequest request) override;
    Task<bool> sharesSupported() override;
    Task<std::vector<VarkJob>> findJobs(std::string query) override;
    Task<std::int64_t> fileAgainstJob(std::vector<std::string> paths, std::int64_t jobID) override;
    Task<std::string> createFolder(std::string path) override;
    Task<VarkItem> item(std::int64_t id) override;
    Task<VarkItem> item(std::string path) override;
    Task<std::optional<BinnedItem>> binned(std::string path) override;
    Task<ChildAnswer> child(std::int64_t ofParent, std::string named) override;
    using VarkAPI::children;
    Task<VarkPage> children(std::int64_t of, std::string cursor, std::int64_t limit, bool ahead) override;
    Task<VarkChanges> changes(std::int64_t under, std::optional<std::string> since,
                              std::int64_t limit) override;
    std::shared_ptr<VarkDownload> download(std::int64_t id, std::filesystem::path to) override;
    Task<void> fetch(std::int64_t id, ContentSink& sink) override;
    Task<std::string> rename(std::string path, std::string to) override;
    Task<std::string> move(std::string path, std::string toFolder) override;
    Task<std::string> bin(std::string path) override;
    Task<BeginResult> begin(std::string path, std::int64_t size, std::string sha256, double mtime,
                            bool replace) override;
    Task<BeginResult> begin(std::string path, std::int64_t size, std::string sha256, double mtime,
                            bool replace, std::optional<std::int64_t> ingestID,
                            std::optional<std::string> source) override;
    Task<IngestStart> ingestBegin(std::string drive, std::string destination, std::int64_t files,
                                  std::int64_t bytes, bool emailMe) override;
    Task<void> ingestFinish(std::int64_t id, std::vector<IngestFile> skipped,
                            std::vector<std::string> leftOut, std::vector<IngestFile> notSent) override;
    Task<void> putChunk(std::string uploadID, std::int64_t index, std::filesystem::path file,
                        std::int64_t offset, std::int64_t length, TokenBucket* limiter,
                        ChunkProgress progress) override;
    Task<std::string> finish(std::string uploadID) override;
    Task<UploadStatus> status(std::string uploadID) override;
    Task<void> cancel(std::string uploadID) override;

    /// See `ChunkSender::rememberBase`.
    void rememberChunkBase(std::string uploadID, const std::optional<std::string>& url) {
        chunks_.rememberBase(std::move(uploadID), url);
    }

  private:
    enum class Auth { none, token };

    /// The answer of one JSON call, with whatever status. Only a 401 to a call with the token is a failure
    /// here.
    Task<APIAnswer> send(std::string method, std::string path, std::optional<std::string> json = std::nullopt,
                         Auth auth = Auth::token);
    Task<APIAnswer> sendDirectly(HTTPRequest request);
    Task<VarkItem> itemAt(std::string requestPath, std::string whatIsRead);

    const std::shared_ptr<HTTPSession> session_;
    const VarkLine line_;
    NodeCalls calls_;
    ChunkSender chunks_;

    TaskScope downloads_;  // Last: its tasks use all of the above.
};

}  // namespace vark
