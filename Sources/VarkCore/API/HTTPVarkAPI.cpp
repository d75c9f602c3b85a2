#include "VarkCore/API/HTTPVarkAPI.h"

#include <utility>

#include "VarkCore/API/Download.h"
#include "VarkCore/API/SessionSettings.h"

namespace vark {

namespace {

Task<void> finishing(std::shared_ptr<VarkDownload> download, Task<void> road) {
    std::exception_ptr failure;
    try {
        co_await std::move(road);
    } catch (...) {
        failure = std::current_exception();
    }
    download->finish(std::move(failure));
}

}  // namespace

HTTPVarkAPI::HTTPVarkAPI(const Host& host, URL baseURL, TokenProvider token)
    : session_(host.makeSession(sessionSettings(host.via, host.authorityFile))),
      line_{*session_, host.lan, host.nodes, host.now, std::move(baseURL), std::move(token)},
      calls_(line_),
      chunks_(line_, calls_, host.writers, host.ways),
      downloads_(host.executor, host.clock) {}

Task<APIAnswer> HTTPVarkAPI::send(std::string method, std::string path, std::optional<std::string> json,
                                  Auth auth) {
    std::optional<URL> url = line_.baseURL.resolving(path);
    if (!url) throw VarkAPIError::badResponse("bad url " + path);
    HTTPRequest request{std::move(method), std::move(*url), {}, {}};
    if (auth == Auth::token) request.headers.push_back(line_.authorization());
    if (json) {
        request.headers.push_back({"Content-Type", "application/json"});
        request.body = std::move(*json);
    } else if (request.method == "POST") {
        request.headers.push_back({"Content-Length", "0"});
    }
    std::optional<APIAnswer> answer = co_await calls_.send(request);
    if (!answer) answer = co_await sendDirectly(std::move(request));
    if (answer->status == 401 && auth == Auth::token) throw serverErrorFor(401, answer->body);
    co_return std::move(*answer);
}

Task<APIAnswer> HTTPVarkAPI::sendDirectly(HTTPRequest request) {
    HTTPResponse response;
    std::optional<HTTPError> failure;
    try {
        response = co_await session_->data(std::move(request));
    } catch (const HTTPError& error) {
        failure = error;
    }
    if (failure) {
        // Some systems report the end of a cancelled transfer as a failure of its own.
        co_await checkCancellation();
        throw VarkAPIError::transport(describeURLError(*failure));
    }
    co_return APIAnswer{response.status, std::move(response.body)};
}

std::shared_ptr<VarkDownload> HTTPVarkAPI::download(std::int64_t id, std::filesystem::path to) {
    HTTPHeader token = line_.authorization();
    // Nobody can stop a download before it is handed out below.
    const auto work = std::make_shared<TaskHandle<void>>();
    const auto download = std::make_shared<VarkDownload>(std::make_shared<Progress>(Download::wholeRoad),
                                                         [work] { work->cancel(); });
    Task<void> road =
        Download::bringToFile(line_, calls_, id, std::move(to), std::move(token), download->progress());
    *work = downloads_.start(finishing(download, std::move(road)));
    return download;
}

Task<void> HTTPVarkAPI::fetch(std::int64_t id, ContentSink& sink) {
    Download download(line_, calls_, id, sink);
    co_await download.bring(line_.authorization());
}

Task<void> HTTPVarkAPI::putChunk(std::string uploadID, std::int64_t index, std::filesystem::path file,
                                 std::int64_t offset, std::int64_t length, TokenBucket* limiter,
                                 ChunkProgress progress) {
    ChunkSource source{std::move(file), offset, length, limiter, std::move(progress)};
    return chunks_.send(std::move(uploadID), index, std::move(source), stallWatch);
}

}  // namespace vark
