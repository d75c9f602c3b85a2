#include "VarkBox/HTTP/JSONBody.h"
#include "VarkBox/Routes/Services.h"

namespace vark::box {

namespace {

BoxReply nothing() {
    return BoxReply::json(200, boost::json::object{});
}

BoxReply files(Services& services) {
    Turn turn = services.database.read();
    Tree tree(turn);
    boost::json::array files;
    for (const Item& item : tree.files()) {
        files.push_back(
            {{"path", tree.path(item)}, {"size", item.size}, {"sha256", item.sha256}, {"id", item.id}});
    }
    return BoxReply::json(200, boost::json::object{{"files", std::move(files)}});
}

}  // namespace

void addFaultRoutes(Router& router, Faults& faults, bool hasUploads) {
    router.add("POST", "/control/faults", Door::open,
               [&faults, hasUploads](const BoxRequest& request, const auto&) {
                   Fault fault = Fault::fromJSON(JSONBody(request.body));
                   if (fault.isOfUpload() && !hasUploads)
                       throw Refusal(400, "A node keeps no uploads. Give this fault to its vark.");
                   return BoxReply::json(201, boost::json::object{{"id", faults.add(std::move(fault))}});
               });
    router.add("GET", "/control/faults", Door::open, [&faults](const auto&, const auto&) {
        return BoxReply::json(200, boost::json::object{{"faults", faults.list()}});
    });
    router.add("DELETE", "/control/faults", Door::open, [&faults](const auto&, const auto&) {
        faults.clear();
        return nothing();
    });
}

void addControlRoutes(Router& router, Services& services) {
    addFaultRoutes(router, services.faults, true);
    router.add("GET", "/control/files", Door::open,
               [&services](const auto&, const auto&) { return files(services); });
    router.add("POST", "/control/token", Door::open, [&services](const BoxRequest& request, const auto&) {
        services.account.setLevel(JSONBody(request.body).required<int>("level"));
        return nothing();
    });
    router.add("POST", "/control/sign-out", Door::open, [&services](const BoxRequest& request, const auto&) {
        SignOut how;
        if (!request.body.empty()) how.code = JSONBody(request.body).optional<std::string>("code");
        services.account.signOut(how);
        return nothing();
    });
    router.add("POST", "/control/sign-in", Door::open, [&services](const auto&, const auto&) {
        services.account.signIn();
        return nothing();
    });
}

}  // namespace vark::box
