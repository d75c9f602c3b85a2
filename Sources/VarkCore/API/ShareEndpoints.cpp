#include <utility>

#include "VarkCore/API/HTTPVarkAPI.h"

// Share links and the job book.

namespace vark {
namespace {

struct JobList {
    std::vector<VarkJob> jobs;
    static JobList fromJSON(const boost::json::value& value) {
        return JobList{optionalList<VarkJob>(JSONFields(value), "jobs")};
    }
};

}  // namespace

Task<VarkShare> HTTPVarkAPI::createShare(ShareRequest request) {
    JSONWriter json;
    request.encode(json);
    const APIAnswer answer = co_await send("POST", "/api/shares", json.take());
    requireStatus(answer, {200, 201});
    co_return decoded<VarkShare>(answer.body, "share");
}

Task<bool> HTTPVarkAPI::sharesSupported() {
    // An empty list of paths can create nothing: whatever the vark says to it, it knows the route, unless it
    // says that there is none.
    const APIAnswer answer = co_await send("POST", "/api/shares", R"({"paths":[]})");
    co_return answer.status != 404 && answer.status != 405;
}

Task<std::vector<VarkJob>> HTTPVarkAPI::findJobs(std::string query) {
    const APIAnswer answer = co_await send("GET", withQuery("/api/jobs", {{"q", std::move(query)}}));
    requireStatus(answer, {200});
    co_return decoded<JobList>(answer.body, "jobs").jobs;
}

Task<std::int64_t> HTTPVarkAPI::fileAgainstJob(std::vector<std::string> paths, std::int64_t jobID) {
    JSONWriter json;
    json.beginObject().field("paths", paths).field("job_id", jobID).endObject();
    const APIAnswer answer = co_await send("POST", "/api/jobs/apply", json.take());
    requireStatus(answer, {200, 201});
    const std::optional<std::int64_t> applied = fieldOf<std::int64_t>(answer.body, "applied");
    co_return applied.value_or(static_cast<std::int64_t>(paths.size()));
}

}  // namespace vark
