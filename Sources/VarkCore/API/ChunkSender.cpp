#include <fmt/format.h>

#include <utility>

#include "VarkCore/API/HTTPVarkAPI.h"
#include "VarkCore/Upload/ChunkTransfer.h"

// Where the bytes of a file leave this machine.

namespace vark {
namespace {

/// The status of a chunk. A 409 means here that the upload has gone, never that a name is taken; and only the
/// application's host can say, with a 400, that it does not take file bytes.
void requireChunkTaken(const HTTPResponse& answer, bool viaApp) {
    if (isSuccess(answer.status)) return;
    switch (answer.status) {
        case 400:
            if (viaApp) throw VarkAPIError::wrongChunkRoute(fieldOf<std::string>(answer.body, "error"));
            break;
        case 404:
        case 409:
        case 410:
            throw VarkAPIError::uploadGone();
        default:
            break;
    }
    throw serverErrorFor(answer.status, answer.body);
}

bool isWebAddress(const URL& url) {
    const std::string scheme = url.scheme();
    return (scheme == "https" || scheme == "http") && !url.host().empty();
}

}  // namespace

void HTTPVarkAPI::rememberChunkBase(std::string uploadID, const std::optional<std::string>& url) {
    std::optional<URL> base = url ? URL::parse(*url) : std::nullopt;
    const Locked hold(chunkLock_);
    if (base && isWebAddress(*base)) {
        chunkBases_.insert_or_assign(std::move(uploadID), std::move(*base));
    } else {
        chunkBases_.erase(uploadID);
    }
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
    HTTPHeader token = authorization();
    ChunkTarget target = chunkTarget(uploadID, index);

    HTTPRequest request{"PUT", std::move(target.url), {}, {}};
    if (target.viaApp) request.headers.push_back(std::move(token));
    request.headers.push_back({"Content-Type", "application/octet-stream"});
    request.headers.push_back({"Content-Length", std::to_string(length)});

    ChunkSource source{std::move(file), offset, length, limiter, std::move(progress)};
    ChunkTransfer transfer(session_, writerPool_, stallWatch, now_, std::move(source));
    const HTTPResponse answer = co_await transfer.send(std::move(request));
    requireChunkTaken(answer, target.viaApp);
}

}  // namespace vark
