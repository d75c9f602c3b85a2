#include <fmt/format.h>

#include <utility>

#include "VarkCore/API/HTTPVarkAPI.h"

// The vark's tree: reading it, and changing what stands where.

namespace vark {
namespace {

/// What an answer that holds a list of folders is read as.
struct FolderList {
    std::vector<VarkFolder> folders;
    static FolderList fromJSON(const boost::json::value& value) {
        return FolderList{requiredList<VarkFolder>(JSONFields(value), "folders")};
    }
};

std::string queryText(const std::string& text, std::string_view alsoAllowed = "") {
    return percentEncodedByAlphanumerics(text, alsoAllowed).value_or(text);
}

/// The path that the vark gave for what it changed. A 202 means that it has taken the change on and will
/// finish it later.
std::string changedPath(const APIAnswer& answer, int otherSuccess, std::string fallback) {
    requireStatus(answer, {200, otherSuccess});
    return fieldOf<std::string>(answer.body, "path").value_or(std::move(fallback));
}

std::string objectOf(std::string_view firstKey, std::string_view first, std::string_view secondKey,
                     std::string_view second) {
    JSONWriter json;
    json.beginObject().field(firstKey, first).field(secondKey, second).endObject();
    return json.take();
}

}  // namespace

Task<WhoAmI> HTTPVarkAPI::whoami() {
    const APIAnswer answer = co_await send("GET", "/api/whoami");
    requireStatus(answer, {200});
    co_return decoded<WhoAmI>(answer.body, "whoami");
}

Task<std::vector<VarkFolder>> HTTPVarkAPI::folders(std::string path) {
    const APIAnswer answer = co_await send("GET", withQuery("/api/folders", {{"path", path}}));
    requireStatus(answer, {200});
    co_return decoded<FolderList>(answer.body, "folders list").folders;
}

Task<VarkItem> HTTPVarkAPI::item(std::int64_t id) {
    return itemAt(fmt::format("/api/item/{}", id), fmt::format("item {}", id));
}

Task<VarkItem> HTTPVarkAPI::item(std::string path) {
    return itemAt(withQuery("/api/item", {{"path", path}}), "item at " + path);
}

Task<VarkItem> HTTPVarkAPI::itemAt(std::string requestPath, std::string whatIsRead) {
    const APIAnswer answer = co_await send("GET", std::move(requestPath));
    requireStatus(answer, {200});
    co_return decoded<VarkItem>(answer.body, std::move(whatIsRead));
}

Task<ChildAnswer> HTTPVarkAPI::child(std::int64_t ofParent, std::string named) {
    const APIAnswer answer =
        co_await send("GET", fmt::format("/api/child?parent={}&name={}", ofParent, queryText(named)));
    requireStatus(answer, {200, 404, 405});
    co_return ChildAnswer::from(answer.status, answer.body);
}

Task<VarkPage> HTTPVarkAPI::children(std::int64_t of, std::string cursor, std::int64_t limit, bool ahead) {
    std::vector<QueryItem> query{{"limit", std::to_string(limit)}};
    if (!cursor.empty()) query.push_back({"cursor", std::move(cursor)});
    if (ahead) query.push_back({"ahead", "1"});
    const APIAnswer answer = co_await send("GET", withQuery(fmt::format("/api/items/{}", of), query));
    requireStatus(answer, {200});
    co_return decoded<VarkPage>(answer.body, fmt::format("the children of {}", of));
}

Task<VarkChanges> HTTPVarkAPI::changes(std::int64_t under, std::optional<std::string> since,
                                       std::int64_t limit) {
    std::vector<QueryItem> query{{"under", std::to_string(under)}, {"limit", std::to_string(limit)}};
    if (since) query.push_back({"since", std::move(*since)});
    const APIAnswer answer = co_await send("GET", withQuery("/api/changes", query));
    requireStatus(answer, {200});
    co_return decoded<VarkChanges>(answer.body, "changes");
}

Task<std::optional<BinnedItem>> HTTPVarkAPI::binned(std::string path) {
    const APIAnswer answer = co_await send("GET", "/api/binned?path=" + queryText(path, "/"));
    requireStatus(answer, {200, 404, 405});
    if (answer.status != 200) co_return std::nullopt;
    co_return BinnedItem::from(answer.body, path);
}

Task<std::string> HTTPVarkAPI::createFolder(std::string path) {
    JSONWriter json;
    json.beginObject().field("path", path).endObject();
    const APIAnswer answer = co_await send("POST", "/api/folders", json.take());
    co_return changedPath(answer, 201, std::move(path));
}

Task<std::string> HTTPVarkAPI::rename(std::string path, std::string to) {
    const APIAnswer answer =
        co_await send("POST", "/api/files/rename", objectOf("path", path, "new_name", to));
    co_return changedPath(answer, 202, std::move(path));
}

Task<std::string> HTTPVarkAPI::move(std::string path, std::string toFolder) {
    const APIAnswer answer =
        co_await send("POST", "/api/files/move", objectOf("path", path, "to_folder", toFolder));
    co_return changedPath(answer, 202, std::move(path));
}

Task<std::string> HTTPVarkAPI::bin(std::string path) {
    const APIAnswer answer = co_await send("DELETE", withQuery("/api/files", {{"path", path}}));
    if (!isSuccess(answer.status)) throw serverErrorFor(answer.status, answer.body);
    co_return fieldOf<std::string>(answer.body, "bin_path").value_or("");
}

}  // namespace vark
