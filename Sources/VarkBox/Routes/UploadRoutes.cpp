#include <fmt/format.h>

#include <algorithm>

#include "VarkBox/HTTP/JSONBody.h"
#include "VarkBox/Routes/Services.h"
#include "VarkBox/Store/Names.h"

namespace vark::box {

namespace {

UploadRequest uploadRequestFrom(const JSONBody& json) {
    UploadRequest file;
    file.path = json.required<std::string>("path");
    if (pathComponents(file.path).empty())
        throw Refusal(400, "A file needs a name. Say where it is to land.");
    file.content.size = json.required<std::int64_t>("size");
    if (file.content.size < 0) throw Refusal(400, "The size of a file cannot be below 0.");
    file.content.sha256 = json.required<std::string>("sha256");
    bool isHash = file.content.sha256.size() == 64 &&
                  file.content.sha256.find_first_not_of("0123456789abcdef") == std::string::npos;
    if (!isHash) throw Refusal(400, "The field \"sha256\" must be 64 digits in lower-case hexadecimal.");
    file.content.mtime = json.optional<double>("mtime");
    file.replaces = json.optional<bool>("replace").value_or(false);
    file.ingest = json.optional<std::int64_t>("ingest_id");
    file.source = json.optional<std::string>("source");
    return file;
}

BoxReply begin(Services& services, const BoxRequest& request) {
    BeginAnswer answer = services.uploads.begin(uploadRequestFrom(JSONBody(request.body)));
    if (answer.exists) return BoxReply::json(200, boost::json::object{{"exists", true}});
    boost::json::object json;
    json["upload_id"] = answer.uploadID;
    json["chunk_size"] = answer.chunkSize;
    json["have"] = boost::json::array(answer.have.begin(), answer.have.end());
    if (services.givesChunkURL) {
        std::optional<std::string> node = services.nodes.attached();
        json["chunk_url"] = fmt::format(
            "{}/u/{}", node ? addressOn(*node, services.chunkURL) : services.chunkURL, answer.uploadID);
    }
    return BoxReply::json(200, json);
}

BoxReply finish(Services& services, std::string_view uploadID) {
    UploadReport report = services.uploads.finish(uploadID);
    // A check that has failed is told by the status: the finish itself was taken on.
    int status = report.state == UploadState::done ? 200 : 202;
    return BoxReply::json(status, boost::json::object{{"path", report.path}});
}

BoxReply status(Services& services, std::string_view uploadID) {
    UploadReport report = services.uploads.status(uploadID);
    return BoxReply::json(200, boost::json::object{{"state", nameOf(report.state)},
                                                   {"received", report.receivedBytes},
                                                   {"total", report.totalBytes},
                                                   {"error", report.error}});
}

std::unique_ptr<BodySink> receive(Services& services, const BoxRequest& request,
                                  const Router::Arguments& arguments) {
    std::int64_t index = numberFrom(arguments[1], "The number of a chunk");
    return services.uploads.receive(arguments[0], index, request.contentLength);
}

}  // namespace

void addUploadRoutes(Router& router, Services& services) {
    router.add("POST", "/api/upload/begin", Door::writer,
               [&services](const BoxRequest& request, const auto&) { return begin(services, request); });
    router.addStreamed("PUT", "/api/upload/{}/{}", Door::writer,
                       [&services](const BoxRequest& request, const Router::Arguments& arguments) {
                           return receive(services, request, arguments);
                       });
    router.add("POST", "/api/upload/{}/finish", Door::writer,
               [&services](const BoxRequest&, const Router::Arguments& arguments) {
                   return finish(services, arguments[0]);
               });
    router.add("GET", "/api/upload/{}", Door::reader,
               [&services](const BoxRequest&, const Router::Arguments& arguments) {
                   return status(services, arguments[0]);
               });
    router.add("DELETE", "/api/upload/{}", Door::writer,
               [&services](const BoxRequest&, const Router::Arguments& arguments) {
                   services.uploads.cancel(arguments[0]);
                   return BoxReply::json(200, boost::json::object{});
               });
}

void addChunkRoutes(Router& router, Services& services) {
    router.addStreamed("PUT", "/u/{}/{}", Door::open,
                       [&services](const BoxRequest& request, const Router::Arguments& arguments) {
                           return receive(services, request, arguments);
                       });
}

}  // namespace vark::box
