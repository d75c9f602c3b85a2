#include <fmt/format.h>

#include <algorithm>

#include "VarkBox/HTTP/JSONBody.h"
#include "VarkBox/Routes/Services.h"

namespace vark::box {

namespace {

constexpr std::int64_t mostJobsTold = 50;

boost::json::object jobFrom(const Query& query) {
    return {{"id", query.integer(0)},  {"ref", query.text(1)},    {"title", query.text(2)},
            {"client", query.text(3)}, {"artist", query.text(4)}, {"date", query.text(5)}};
}

/// The latest first; what was typed may stand anywhere in the number, the title or the name of the client.
BoxReply find(Services& services, const BoxRequest& request) {
    Turn turn = services.database.read();
    Query query = turn.query(R"(
SELECT id, ref, title, client, artist, date FROM jobs
WHERE instr(lower(ref || char(10) || title || char(10) || client), lower(?)) > 0
ORDER BY date DESC, id DESC LIMIT ?)");
    query.with(request.queryValue("q").value_or(""), mostJobsTold);
    boost::json::array jobs;
    while (query.next())
        jobs.push_back(jobFrom(query));
    return BoxReply::json(200, boost::json::object{{"jobs", std::move(jobs)}});
}

/// What has gone in the meantime is passed over; the answer counts the rest. Nothing here is answered with
/// 404, for that says that there is no job book.
BoxReply apply(Services& services, const BoxRequest& request) {
    JSONBody json(request.body);
    auto job = json.required<std::int64_t>("job_id");
    Turn turn = services.database.write();
    {
        Query known = turn.query("SELECT 1 FROM jobs WHERE id = ?");
        if (!known.with(job).next())
            throw Refusal(400, fmt::format("There is no job {} in the job book. Look it up again.", job));
    }
    Tree tree(turn);
    std::int64_t applied = 0;
    for (const std::string& path : json.required<std::vector<std::string>>("paths")) {
        std::optional<Item> item = tree.find(path);
        if (!item) continue;
        turn.query("INSERT OR IGNORE INTO job_items(job, item) VALUES(?, ?)").with(job, item->id).run();
        ++applied;
    }
    turn.commit();
    return BoxReply::json(200, boost::json::object{{"applied", applied}});
}

std::vector<std::int64_t> itemsOf(Turn& turn, std::int64_t job) {
    Query query = turn.query("SELECT item FROM job_items WHERE job = ? ORDER BY item");
    query.with(job);
    std::vector<std::int64_t> items;
    while (query.next())
        items.push_back(query.integer(0));
    return items;
}

/// Each job with the paths that were filed against it.
BoxReply list(Services& services) {
    Turn turn = services.database.read();
    std::vector<boost::json::object> jobs;
    {
        Query query = turn.query("SELECT id, ref, title, client, artist, date FROM jobs ORDER BY id");
        while (query.next())
            jobs.push_back(jobFrom(query));
    }
    Tree tree(turn);
    boost::json::array told;
    for (boost::json::object& job : jobs) {
        boost::json::array paths;
        for (std::int64_t id : itemsOf(turn, job.at("id").as_int64())) {
            if (std::optional<Item> item = tree.find(id))
                paths.push_back(boost::json::string(tree.path(*item)));
        }
        job["paths"] = std::move(paths);
        told.push_back(std::move(job));
    }
    return BoxReply::json(200, boost::json::object{{"jobs", std::move(told)}});
}

}  // namespace

void addJobRoutes(Router& router, Services& services) {
    if (!services.hasJobBook) return;
    router.add("GET", "/api/jobs", Door::reader,
               [&services](const BoxRequest& request, const auto&) { return find(services, request); });
    router.add("POST", "/api/jobs/apply", Door::writer,
               [&services](const BoxRequest& request, const auto&) { return apply(services, request); });
    router.add("GET", "/control/jobs", Door::open,
               [&services](const auto&, const auto&) { return list(services); });
}

}  // namespace vark::box
