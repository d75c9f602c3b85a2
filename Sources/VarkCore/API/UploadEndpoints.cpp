#include <utility>

#include "VarkCore/API/HTTPVarkAPI.h"

// The life of an upload but for its bytes.

namespace vark {
namespace {

struct BeginAnswer {
    bool exists = false;
    std::optional<std::string> uploadID;
    std::optional<std::int64_t> chunkSize;
    std::vector<std::int64_t> have;
    std::optional<std::int64_t> size;
    std::optional<double> mtime;
    std::optional<std::string> chunkURL;

    /// Nothing for a body that is no such answer.
    static std::optional<BeginAnswer> from(std::string_view body) {
        try {
            const boost::json::value value = parseJSON(body);
            const JSONFields fields(value);
            return BeginAnswer{
                fields.valueOr("exists", false),
                fields.optional<std::string>("upload_id"),
                fields.optional<std::int64_t>("chunk_size"),
                fields.valueOr("have", std::vector<std::int64_t>()),
                fields.optional<std::int64_t>("size"),
                fields.optional<double>("mtime"),
                fields.optional<std::string>("chunk_url"),
            };
        } catch (const DecodingError&) {
            return std::nullopt;
        }
    }
};

}  // namespace

Task<BeginResult> HTTPVarkAPI::begin(std::string path, std::int64_t size, std::string sha256, double mtime,
                                     bool replace) {
    return begin(std::move(path), size, std::move(sha256), mtime, replace, std::nullopt, std::nullopt);
}

Task<BeginResult> HTTPVarkAPI::begin(std::string path, std::int64_t size, std::string sha256, double mtime,
                                     bool replace, std::optional<std::int64_t> ingestID,
                                     std::optional<std::string> source) {
    JSONWriter json;
    json.beginObject().field("path", path).field("size", size).field("sha256", sha256).field("mtime", mtime);
    if (replace) json.field("replace", true);
    json.field("ingest_id", ingestID).field("source", source).endObject();
    const APIAnswer answer = co_await send("POST", "/api/upload/begin", json.take());

    std::optional<BeginAnswer> said = BeginAnswer::from(answer.body);
    if (answer.status == 409) {
        if (!said) co_return BeginResult::Conflict{};
        co_return BeginResult::Conflict{said->size, said->mtime};
    }
    requireStatus(answer, {200});
    if (!said) throw VarkAPIError::badResponse("begin");
    if (said->exists) co_return BeginResult::Exists{};
    const std::int64_t chunkSize = said->chunkSize.value_or(0);
    if (!said->uploadID || chunkSize < 1)
        throw VarkAPIError::badResponse("begin returned neither an upload nor exists");
    chunks_.rememberBase(*said->uploadID, said->chunkURL);
    co_return BeginResult::Start{std::move(*said->uploadID), chunkSize, std::move(said->have)};
}

Task<UploadStatus> HTTPVarkAPI::status(std::string uploadID) {
    const APIAnswer answer = co_await send("GET", "/api/upload/" + uploadID);
    if (answer.status == 404 || answer.status == 410) chunks_.failForGoneUpload(uploadID);
    requireStatus(answer, {200});
    co_return decoded<UploadStatus>(answer.body, "upload status");
}

Task<std::string> HTTPVarkAPI::finish(std::string uploadID) {
    const APIAnswer answer = co_await send("POST", "/api/upload/" + uploadID + "/finish");
    if (answer.status == 404 || answer.status == 409 || answer.status == 410)
        chunks_.failForGoneUpload(uploadID);
    requireStatus(answer, {200, 202});
    chunks_.forgetBase(uploadID);
    co_return fieldOf<std::string>(answer.body, "path").value_or("");
}

Task<void> HTTPVarkAPI::cancel(std::string uploadID) {
    const APIAnswer answer = co_await send("DELETE", "/api/upload/" + uploadID);
    // An upload that the vark no longer knows is cancelled enough.
    if (!isSuccess(answer.status) && answer.status != 404) throw serverErrorFor(answer.status, answer.body);
    chunks_.forgetUpload(uploadID);
}

}  // namespace vark
