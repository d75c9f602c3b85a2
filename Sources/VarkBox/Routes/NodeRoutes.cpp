#include <fmt/format.h>

#include "VarkBox/HTTP/JSONBody.h"
#include "VarkBox/Routes/Services.h"
#include "VarkBox/Store/Names.h"

namespace vark::box {

namespace {

BoxReply attach(Services& services, const BoxRequest& request) {
    std::string host = hostName(JSONBody(request.body).required<std::string>("host"));
    services.nodes.attach(host, services.certify);
    return BoxReply::json(201, boost::json::object{{"host", host}, {"chunk_url", services.chunkURL}});
}

BoxReply listNodes(Services& services) {
    std::optional<std::string> attached = services.nodes.attached();
    boost::json::object answer{{"attached", attached ? boost::json::value(*attached) : nullptr}};
    boost::json::array known;
    for (const std::string& host : services.nodes.known())
        known.push_back(boost::json::string(host));
    answer["known"] = std::move(known);
    return BoxReply::json(200, answer);
}

}  // namespace

std::string addressOn(std::string_view host, std::string_view url) {
    constexpr std::string_view usualPort = ":443";
    std::string_view scheme = url.substr(0, url.find("//") + 2);
    std::string_view port = url.substr(url.rfind(':'));
    return fmt::format("{}{}{}", scheme, host, port == usualPort ? "" : port);
}

void addNodeRoutes(Router& router, Services& services) {
    router.add("POST", "/control/nodes", Door::open,
               [&services](const BoxRequest& request, const auto&) { return attach(services, request); });
    router.add("DELETE", "/control/nodes/{}", Door::open,
               [&services](const BoxRequest&, const Router::Arguments& arguments) {
                   services.nodes.detach(hostName(arguments[0]));
                   return BoxReply::json(200, boost::json::object{});
               });
    router.add("GET", "/control/nodes", Door::open,
               [&services](const auto&, const auto&) { return listNodes(services); });
}

}  // namespace vark::box
