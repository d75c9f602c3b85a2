#include "VarkCore/API/ChunkSender.h"

#include <fmt/format.h>

#include <utility>

#include "VarkCore/Upload/ByteCounter.h"
#include "VarkCore/Upload/ChunkTransfer.h"
#include "VarkCore/Upload/RunWhileItMoves.h"

namespace vark {
namespace {

constexpr const char* chunkContentType = "application/octet-stream";

bool isWebAddress(const URL& url) {
    const std::string scheme = url.scheme();
    return (scheme == "https" || scheme == "http") && !url.host().empty();
}

}  // namespace

void ChunkSender::rememberBase(std::string uploadID, const std::optional<std::string>& url) {
    std::optional<URL> base = url ? URL::parse(*url) : std::nullopt;
    if (base && base->scheme() == "https" && isWebAddress(*base)) calls_.vouchedFor(base->host());
    const Locked hold(lock_);
    if (base && isWebAddress(*base)) {
        bases_.insert_or_assign(std::move(uploadID), std::move(*base));
    } else {
        bases_.erase(uploadID);
    }
}

void ChunkSender::forgetBase(const std::string& uploadID) {
    const Locked hold(lock_);
    bases_.erase(uploadID);
}

void ChunkSender::forgetUpload(const std::string& uploadID) {
    forgetBase(uploadID);
    if (ways_ != nullptr) ways_->take(uploadID);
}

void ChunkSender::failForGoneUpload(const std::string& uploadID) {
    forgetUpload(uploadID);
    throw VarkAPIError::uploadGone();
}

/// A 409 means here that the upload has gone, never that a name is taken; and only the application's host can
/// say, with a 400, that it does not take file bytes.
void ChunkSender::requireTaken(const std::string& uploadID, int status, const std::string& body,
                               bool viaApp) {
    if (isSuccess(status)) return;
    if (status == 400 && viaApp) throw VarkAPIError::wrongChunkRoute(fieldOf<std::string>(body, "error"));
    if (status == 404 || status == 409 || status == 410) failForGoneUpload(uploadID);
    throw serverErrorFor(status, body);
}

ChunkSender::Target ChunkSender::target(const std::string& uploadID, std::int64_t index) {
    {
        const Locked hold(lock_);
        const auto base = bases_.find(uploadID);
        if (base != bases_.end()) return {base->second.withPathSuffix(fmt::format("/{}", index)), false};
    }
    return {line_.baseURL.appendingPath(fmt::format("api/upload/{}/{}", uploadID, index)), true};
}

Task<void> ChunkSender::send(std::string uploadID, std::int64_t index, ChunkSource source, StallWatch watch) {
    // Without a token nothing is sent, not even to an address that needs none.
    const HTTPHeader token = line_.authorization();
    const Target target = this->target(uploadID, index);
    LANTransfer::Headers tokenForApp;
    if (target.viaApp) tokenForApp.push_back(token);

    std::optional<LANRoute> route;
    if (target.viaApp) {
        route = co_await calls_.route(target.url);
    } else {
        route = line_.lan.route(target.url, line_.now());
    }
    if (route) {
        std::optional<LANTransfer::Response> answer =
            co_await calls_.answerOf(route->host, putOnNode(*route, source, watch, tokenForApp));
        if (answer) {
            requireTaken(uploadID, answer->status, answer->body, target.viaApp);
            if (ways_ != nullptr) ways_->noteNode(uploadID, route->host);
            co_return;
        }
        if (source.progress) source.progress(0);
    }

    HTTPRequest request{"PUT", target.url, std::move(tokenForApp), {}};
    request.headers.push_back({"Content-Type", chunkContentType});
    request.headers.push_back({"Content-Length", std::to_string(source.length)});
    ChunkTransfer transfer(line_.session, writers_, watch, line_.now, source);
    const HTTPResponse answer = co_await transfer.send(std::move(request));
    requireTaken(uploadID, answer.status, answer.body, target.viaApp);
    if (ways_ != nullptr) ways_->noteInternet(uploadID);
}

Task<LANTransfer::Response> ChunkSender::putOnNode(LANRoute route, ChunkSource source, StallWatch watch,
                                                   LANTransfer::Headers headers) {
    ByteCounter sent;
    LANTransfer::PutProgress progress = [&sent, told = source.progress](std::int64_t count) {
        sent.set(count);
        if (told) told(count);
    };
    Task<LANTransfer::Response> put =
        line_.nodes.put(source.file, source.offset, source.length, chunkContentType, std::move(route),
                        source.limiter, std::move(headers), std::move(progress));
    auto moved = [&sent] { return sent.value(); };
    co_return co_await runWhileItMoves<LANTransfer::Response>(source.length, watch, moved, std::move(put));
}

}  // namespace vark
