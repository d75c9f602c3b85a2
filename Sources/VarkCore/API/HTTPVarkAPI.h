#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/API/Answers.h"
#include "VarkCore/API/VarkAPI.h"
#include "VarkCore/API/VarkDownload.h"
#include "VarkCore/API/WaysTaken.h"
#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Foundation/Date.h"
#include "VarkCore/Foundation/URL.h"
#include "VarkCore/LAN/LANRouter.h"
#include "VarkCore/LAN/LANTransfer.h"
#include "VarkCore/Services/HTTPSession.h"
#include "VarkCore/Upload/ChunkWriter.h"
#include "VarkCore/Upload/StallWatch.h"

namespace vark {

/// Asked for the device's token at every call that carries it, so that a new one takes effect at once; from
/// any thread.
using TokenProvider = std::function<std::optional<std::string>()>;

/// The vark over HTTP, and through the nodes of this network where there are some. One for each connection: a
/// process makes a new one when its connection changes. Called from many tasks at once, on any executor, and
/// outlives them; its end cancels its downloads and awaits them.
class HTTPVarkAPI final : public VarkAPI {
  public:
    /// What the API needs of the process that it runs in. All of it outlives the API.
    struct Host {
        HTTPSession& session;
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

    /// The address under which the vark takes the chunks of an upload directly; without one that can be used
    /// they go to the application's host. Only what the vark said to a call with the token.
    void rememberChunkBase(std::string uploadID, const std::optional<std::string>& url);

  private:
    enum class Auth { none, token };
    struct ChunkTarget {
        URL url;
        /// Whether this is the application's host, which needs the token and may refuse file bytes.
        bool viaApp;
    };

    /// The answer of one JSON call, with whatever status. Only a 401 to a call with the token is a failure
    /// here.
    Task<APIAnswer> send(std::string method, std::string path, std::optional<std::string> json = std::nullopt,
                         Auth auth = Auth::token);
    Task<APIAnswer> sendDirectly(HTTPRequest request, Auth auth);
    /// Fails with `notConnected` when no token is at hand.
    HTTPHeader authorization() const;

    Task<VarkItem> itemAt(std::string requestPath, std::string whatIsRead);
    ChunkTarget chunkTarget(const std::string& uploadID, std::int64_t index);
    void forgetChunkBase(const std::string& uploadID);
    /// The vark knows the upload no more: nobody will ask for what is kept of it.
    void forgetUpload(const std::string& uploadID);
    /// Forgets the upload with it.
    [[noreturn]] void failForGoneUpload(const std::string& uploadID);
    void requireChunkTaken(const std::string& uploadID, int status, const std::string& body, bool viaApp);
    Task<LANTransfer::Response> putChunkOnNode(LANRoute route, ChunkSource source,
                                               LANTransfer::Headers headers);

    /// Nothing when the node failed: the request is for the internet then.
    Task<std::optional<APIAnswer>> sendOverNode(HTTPRequest request, LANRoute route, Auth auth);
    /// Nothing when the exchange ended in a failure of the node, which is marked bad for it.
    Task<std::optional<LANTransfer::Response>> answerOfNode(std::string host,
                                                            Task<LANTransfer::Response> exchange);
    /// The way to an address of the application's host through a node, which proves first that it speaks the
    /// API.
    Task<std::optional<LANRoute>> lanAPIRoute(URL url);
    /// The same through a node that has done so before.
    std::optional<LANRoute> verifiedRoute(const URL& url) const;
    /// Through the first node that may be asked at all, since it would get the token.
    std::optional<LANRoute> apiRoute(const URL& url) const;
    /// A good certificate only says whose node it is: the token is for those of the vark's own domain, and
    /// for those that the vark has sent us to.
    bool standsForTheVark(const std::string& host) const;
    /// Marks the node bad if not.
    Task<bool> provesItself(LANRoute probe);

    /// One item on its way. What it refers to outlives the roads that are tried for it.
    struct Wanted {
        std::int64_t id;
        ContentSink& sink;
        std::shared_ptr<Progress> progress;
    };
    enum class Roads { all, internetOnly };
    URL fileURL(std::int64_t id) const;
    Task<void> bringToFile(std::int64_t id, std::filesystem::path to, HTTPHeader token,
                           std::shared_ptr<Progress> progress);
    Task<void> bring(Wanted wanted, HTTPHeader token);
    Task<void> fetchWhereNodeSays(Wanted wanted, LANRoute node, HTTPHeader token);
    /// False when the road failed, and the node was marked bad for it.
    Task<bool> arrivesOverNode(std::string host, Task<void> road);
    Task<void> getFromNode(LANRoute route, Wanted wanted);
    /// After a node has failed.
    Task<void> fetchByInternet(Wanted wanted);
    Task<void> plainFetch(URL url, Wanted wanted);
    Task<void> fetchBySession(Wanted wanted, HTTPHeader token, Roads roads);

    HTTPSession& session_;
    LANRouter& lan_;
    LANTransfer& nodes_;
    WaysTaken* const ways_;
    BlockingPool& writerPool_;
    const WallClock now_;
    const URL baseURL_;
    const TokenProvider token_;

    class ProbePermit;
    Mutex probeLock_;
    /// The hosts of the nodes that are proving themselves just now.
    std::set<std::string> probed_ VARK_GUARDED_BY(probeLock_);

    mutable Mutex chunkLock_;
    /// Of uploads that have neither landed nor gone.
    std::map<std::string, URL> chunkBases_ VARK_GUARDED_BY(chunkLock_);
    /// The hosts, lower-cased, that have taken chunks over TLS at the vark's word.
    std::set<std::string> namedByTheVark_ VARK_GUARDED_BY(chunkLock_);

    TaskScope downloads_;  // Last: its tasks use all of the above.
};

}  // namespace vark
