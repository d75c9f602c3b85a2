#include "VarkCore/API/VarkAPI.h"

#include <utility>

namespace vark {

Task<void> VarkAPI::sendDiagnostics(DiagnosticsReport /*report*/) {
    co_return;
}

Task<std::optional<BinnedItem>> VarkAPI::binned(std::string /*path*/) {
    co_return std::nullopt;
}

Task<ChildAnswer> VarkAPI::child(std::int64_t /*ofParent*/, std::string /*named*/) {
    co_return ChildAnswer::noRoute();
}

Task<BeginResult> VarkAPI::begin(std::string path, std::int64_t size, std::string sha256, double mtime,
                                 bool replace, std::optional<std::int64_t> /*ingestID*/,
                                 std::optional<std::string> /*source*/) {
    return begin(std::move(path), size, std::move(sha256), mtime, replace);
}

Task<IngestStart> VarkAPI::ingestBegin(std::string /*drive*/, std::string /*destination*/,
                                       std::int64_t /*files*/, std::int64_t /*bytes*/, bool /*emailMe*/) {
    throw VarkAPIError::notConnected();
    co_return IngestStart{};
}

Task<void> VarkAPI::ingestFinish(std::int64_t /*id*/, std::vector<IngestFile> /*skipped*/,
                                 std::vector<std::string> /*leftOut*/, std::vector<IngestFile> /*notSent*/) {
    co_return;
}

Task<VarkShare> VarkAPI::createShare(std::vector<std::string> paths) {
    ShareRequest request;
    request.paths = std::move(paths);
    return createShare(std::move(request));
}

Task<VarkPage> VarkAPI::children(std::int64_t of, std::string cursor, std::int64_t limit) {
    return children(of, std::move(cursor), limit, false);
}

}  // namespace vark
