#include <fmt/format.h>

#include <utility>

#include "VarkCore/API/HTTPVarkAPI.h"

// Cards and drives, the tags that go with them, and the report on this device.

namespace vark {
namespace {

struct TagList {
    struct Tag {
        std::string name;
        static Tag fromJSON(const boost::json::value& value) {
            return Tag{JSONFields(value).required<std::string>("name")};
        }
    };
    std::vector<std::string> names;

    static TagList fromJSON(const boost::json::value& value) {
        TagList list;
        for (Tag& tag : requiredList<Tag>(JSONFields(value), "tags"))
            list.names.push_back(std::move(tag.name));
        return list;
    }
};

void encodeFiles(JSONWriter& json, std::string_view key, const std::vector<IngestFile>& files) {
    json.key(key).beginArray();
    for (const IngestFile& file : files)
        file.encode(json);
    json.endArray();
}

}  // namespace

Task<std::vector<std::string>> HTTPVarkAPI::tags() {
    const APIAnswer answer = co_await send("GET", "/api/tags");
    requireStatus(answer, {200});
    co_return decoded<TagList>(answer.body, "tags list").names;
}

Task<std::int64_t> HTTPVarkAPI::tagFiles(std::vector<std::string> paths, std::vector<std::string> tags) {
    JSONWriter json;
    json.beginObject().field("paths", paths).field("tags", tags).field("create", true).endObject();
    const APIAnswer answer = co_await send("POST", "/api/files/tag", json.take());
    requireStatus(answer, {200, 201});
    co_return fieldOf<std::int64_t>(answer.body, "n").value_or(0);
}

Task<IngestStart> HTTPVarkAPI::ingestBegin(std::string drive, std::string destination, std::int64_t files,
                                           std::int64_t bytes, bool emailMe) {
    JSONWriter json;
    json.beginObject().field("drive", drive).field("destination", destination);
    json.field("files", files).field("bytes", bytes).field("email_me", emailMe).endObject();
    const APIAnswer answer = co_await send("POST", "/api/ingest", json.take());
    requireStatus(answer, {200, 201});
    co_return decoded<IngestStart>(answer.body, "ingest");
}

Task<void> HTTPVarkAPI::ingestFinish(std::int64_t id, std::vector<IngestFile> skipped,
                                     std::vector<std::string> leftOut, std::vector<IngestFile> notSent) {
    JSONWriter json;
    json.beginObject();
    encodeFiles(json, "skipped", skipped);
    json.field("left_out", leftOut);
    encodeFiles(json, "not_sent", notSent);
    json.endObject();
    const APIAnswer answer = co_await send("POST", fmt::format("/api/ingest/{}/finish", id), json.take());
    requireStatus(answer, {200});
}

Task<void> HTTPVarkAPI::sendDiagnostics(DiagnosticsReport report) {
    JSONWriter json;
    report.encode(json);
    const APIAnswer answer = co_await send("POST", "/api/diagnostics", json.take());
    requireStatus(answer, {200, 201});
}

}  // namespace vark
