#include <fmt/format.h>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include "VarkBox/HTTP/JSONBody.h"
#include "VarkBox/Routes/Services.h"
#include "VarkCore/Foundation/Time/Date.h"

namespace vark::box {

namespace {

BoxReply tags(Services& services) {
    Turn turn = services.database.read();
    Query query = turn.query("SELECT name FROM tags ORDER BY name");
    boost::json::array tags;
    while (query.next())
        tags.push_back({{"name", query.text(0)}});
    return BoxReply::json(200, boost::json::object{{"tags", std::move(tags)}});
}

std::int64_t tagID(Turn& turn, const std::string& name, bool create) {
    if (create) turn.query("INSERT OR IGNORE INTO tags(name) VALUES(?)").with(name).run();
    Query query = turn.query("SELECT id FROM tags WHERE name = ?");
    if (!query.with(name).next()) throw Refusal(400, fmt::format("There is no tag \"{}\".", name));
    return query.integer(0);
}

/// What has gone in the meantime is passed over; the answer counts the rest.
BoxReply tagFiles(Services& services, const BoxRequest& request) {
    JSONBody json(request.body);
    bool create = json.optional<bool>("create").value_or(false);
    Turn turn = services.database.write();
    std::vector<std::int64_t> tagIDs;
    for (const std::string& name : json.required<std::vector<std::string>>("tags")) {
        tagIDs.push_back(tagID(turn, name, create));
    }
    Tree tree(turn);
    std::int64_t tagged = 0;
    for (const std::string& path : json.required<std::vector<std::string>>("paths")) {
        std::optional<Item> item = tree.find(path);
        if (!item) continue;
        for (std::int64_t id : tagIDs) {
            turn.query("INSERT OR IGNORE INTO item_tags(item, tag) VALUES(?, ?)").with(item->id, id).run();
        }
        ++tagged;
    }
    turn.commit();
    return BoxReply::json(200, boost::json::object{{"n", tagged}});
}

BoxReply beginIngest(Services& services, const BoxRequest& request) {
    JSONBody json(request.body);
    auto bytes = json.required<std::int64_t>("bytes");
    Turn turn = services.database.write();
    std::int64_t free = services.account.bytesOfPlan() - Tree(turn).bytesHeld();
    turn.query("INSERT INTO ingests(announced) VALUES(?)").with(boost::json::serialize(json.object())).run();
    std::int64_t id = turn.lastInsertedID();
    turn.commit();
    return BoxReply::json(201, boost::json::object{{"id", id}, {"fits", bytes <= free}, {"free", free}});
}

BoxReply finishIngest(Services& services, const BoxRequest& request, std::string_view id) {
    JSONBody json(request.body);
    Turn turn = services.database.write();
    turn.query("UPDATE ingests SET finished = ? WHERE id = ?")
        .with(boost::json::serialize(json.object()), numberFrom(id, "The number of an ingest"))
        .run();
    if (turn.changedRows() == 0)
        throw Refusal(404, fmt::format("There is no ingest {}. Announce it first.", id));
    turn.commit();
    return BoxReply::json(200, boost::json::object{});
}

BoxReply keepDiagnostics(Services& services, const BoxRequest& request) {
    JSONBody json(request.body);
    Turn turn = services.database.write();
    turn.query("INSERT INTO diagnostics(at, report) VALUES(?, ?)")
        .with(now(), boost::json::serialize(json.object()))
        .run();
    turn.commit();
    return BoxReply::json(201, boost::json::object{});
}

BoxReply listIngests(Services& services) {
    Turn turn = services.database.read();
    Query query = turn.query("SELECT id, announced, finished FROM ingests ORDER BY id");
    boost::json::array ingests;
    while (query.next()) {
        boost::json::object ingest{{"id", query.integer(0)},
                                   {"announced", boost::json::parse(query.text(1))}};
        if (!query.isNull(2)) ingest["finished"] = boost::json::parse(query.text(2));
        ingests.push_back(std::move(ingest));
    }
    return BoxReply::json(200, boost::json::object{{"ingests", std::move(ingests)}});
}

BoxReply listDiagnostics(Services& services) {
    Turn turn = services.database.read();
    Query query = turn.query("SELECT report FROM diagnostics ORDER BY id");
    boost::json::array reports;
    while (query.next())
        reports.push_back(boost::json::parse(query.text(0)));
    return BoxReply::json(200, boost::json::object{{"diagnostics", std::move(reports)}});
}

}  // namespace

void addDeskRoutes(Router& router, Services& services) {
    using Arguments = Router::Arguments;
    router.add("GET", "/api/tags", Door::reader,
               [&services](const BoxRequest&, const Arguments&) { return tags(services); });
    router.add(
        "POST", "/api/files/tag", Door::writer,
        [&services](const BoxRequest& request, const Arguments&) { return tagFiles(services, request); });
    router.add("POST", "/api/ingest", Door::writer, [&services](const BoxRequest& request, const Arguments&) {
        return beginIngest(services, request);
    });
    router.add("POST", "/api/ingest/{}/finish", Door::writer,
               [&services](const BoxRequest& request, const Arguments& arguments) {
                   return finishIngest(services, request, arguments[0]);
               });
    router.add("POST", "/api/diagnostics", Door::reader,
               [&services](const BoxRequest& request, const Arguments&) {
                   return keepDiagnostics(services, request);
               });
    router.add("GET", "/control/ingests", Door::open,
               [&services](const BoxRequest&, const Arguments&) { return listIngests(services); });
    router.add("GET", "/control/diagnostics", Door::open,
               [&services](const BoxRequest&, const Arguments&) { return listDiagnostics(services); });
}

}  // namespace vark::box
