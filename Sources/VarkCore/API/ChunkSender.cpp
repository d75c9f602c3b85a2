#include <fmt/format.h>

#include <utility>

#include "VarkCore/API/HTTPVarkAPI.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Upload/ByteCounter.h"
#include "VarkCore/Upload/ChunkTransfer.h"
#include "VarkCore/Upload/RunWhileItMoves.h"

// Where the bytes of a file leave this machine.

namespace vark {
namespace {

constexpr const char* chunkContentType = "application/octet-stream";

bool isWebAddress(const URL& url) {
    const std::string scheme = url.scheme();
    return (scheme == "https" || scheme == "http") && !url.host().empty();
}

}  // namespace

void HTTPVarkAPI::rememberChunkBase(std::string uploadID, const std::optional<std::string>& url) {
    std::optional<URL> base = url ? URL::parse(*url) : std::nullopt;
    const Locked hold(chunkLock_);
    if (base && isWebAddress(*base)) {
        if (base->scheme() == "https") namedByTheVark_.insert(lowercased(base->host()));
        chunkBases_.insert_or_assign(std::move(uploadID), std::move(*base));
    } else {
        chunkBases_.erase(uploadID);
    }
}

void HTTPVarkAPI::forgetChunkBase(const std::string& uploadID) {
    const Locked hold(chunkLock_);
    chunkBases_.erase(uploadID);
}

void HTTPVarkAPI::forgetUpload(const std::string& uploadID) {
    forgetChunkBase(uploadID);
    if (ways_ != nullptr) ways_->take(uploadID);
}

void HTTPVarkAPI::failForGoneUpload(const std::string& uploadID) {
    forgetUpload(uploadID);
    throw VarkAPIError::uploadGone();
}

/// A 409 means here that the upload has gone, never that a name is taken; and only the application's host can
/// say, with a 400, that it does not take file bytes.
void HTTPVarkAPI::requireChunkTaken(const std::string& uploadID, int status, const std::string& body,
                                    bool viaApp) {
    if (isSuccess(status)) return;
    if (status == 400 && viaApp) throw VarkAPIError::wrongChunkRoute(fieldOf<std::string>(body, "error"));
    if (status == 404 || status == 409 || status == 410) failForGoneUpload(uploadID);
    throw serverErrorFor(status, body);
}

HTTPVarkAPI::ChunkTarget HTTPVarkAPI::chunkTarget(const std::string& uploadID, std::int64_t index) {
    {
        const Locked hold(chunkLock_);
        const auto base = chunkBases_.find(uploadID);
        if (base != chunkBases_.end()) return {base->second.withPathSuffix(fmt::format("/{}", index)), false};
    }
    return {baseURL_.appendingPath(fmt::format("api/upload/{}/{}", uploadID, index)), true};
}

Task<void> HTTPVarkAPI::putChunk(std::string uploadID, std::int64_t index, std::filesystem::path file,
                                 std::int64_t offset, std::int64_t length, TokenBucket* limiter,
                                 ChunkProgress progress) {
    // Without a token nothing is sent, not even to an address that needs none.
    const HTTPHeader token = authorization();
    const ChunkTarget target = chunkTarget(uploadID, index);
    LANTransfer::Headers tokenForApp;
    if (target.viaApp) tokenForApp.push_back(token);
    const ChunkSource source{std::move(file), offset, length, limiter, std::move(progress)};

    std::optional<LANRoute> route;
    if (target.viaApp) {
        route = co_await lanAPIRoute(target.url);
    } else {
        route = lan_.route(target.url, now_());
    }
    if (route) {
        std::optional<LANTransfer::Response> answer =
            co_await answerOfNode(route->host, putChunkOnNode(*route, source, tokenForApp));
        if (answer) {
            requireChunkTaken(uploadID, answer->status, answer->body, target.viaApp);
            if (ways_ != nullptr) ways_->noteNode(uploadID, route->host);
            co_return;
        }
        if (source.progress) source.progress(0);
    }

    HTTPRequest request{"PUT", target.url, std::move(tokenForApp), {}};
    request.headers.push_back({"Content-Type", chunkContentType});
    request.headers.push_back({"Content-Length", std::to_string(length)});
    ChunkTransfer transfer(session_, writerPool_, stallWatch, now_, source);
    const HTTPResponse answer = co_await transfer.send(std::move(request));
    requireChunkTaken(uploadID, answer.status, answer.body, target.viaApp);
    if (ways_ != nullptr) ways_->noteInternet(uploadID);
}

Task<LANTransfer::Response> HTTPVarkAPI::putChunkOnNode(LANRoute route, ChunkSource source,
                                                        LANTransfer::Headers headers) {
    ByteCounter sent;
    LANTransfer::PutProgress progress = [&sent, told = source.progress](std::int64_t count) {
        sent.set(count);
        if (told) told(count);
    };
    Task<LANTransfer::Response> put =
        nodes_.put(source.file, source.offset, source.length, chunkContentType, std::move(route),
                   source.limiter, std::move(headers), std::move(progress));
    auto moved = [&sent] { return sent.value(); };
    co_return co_await runWhileItMoves<LANTransfer::Response>(source.length, stallWatch, moved,
                                                              std::move(put));
}

}  // namespace vark
