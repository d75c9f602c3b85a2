#include <fmt/format.h>

#include "VarkBox/HTTP/JSONBody.h"
#include "VarkBox/HTTP/Page.h"
#include "VarkBox/Routes/Services.h"
#include "VarkCore/Foundation/Time/Date.h"

namespace vark::box {

namespace {

boost::json::object claimFor(const Services& services, const std::string& token) {
    return {
        {"token", token}, {"client_name", services.account.client()}, {"email", services.account.email()}};
}

BoxReply claim(Services& services, const BoxRequest& request) {
    JSONBody json(request.body);
    auto deviceName = json.required<std::string>("device_name");
    services.signIns.spendCode(json.required<std::string>("code"), now());
    return BoxReply::json(200, claimFor(services, services.account.addDevice(deviceName)));
}

BoxReply beginSignIn(Services& services, const BoxRequest& request) {
    auto deviceName = JSONBody(request.body).required<std::string>("device_name");
    SignIns::Begun begun = services.signIns.begin(deviceName, now());
    return BoxReply::json(
        201, boost::json::object{{"nonce", begun.nonce},
                                 {"url", fmt::format("{}/portal/connect/{}", services.url, begun.key)},
                                 {"expires_in", services.signIns.lastsSeconds()}});
}

BoxReply poll(Services& services, std::string_view nonce) {
    auto connect = [&services](const std::string& name) { return services.account.addDevice(name); };
    SignIns::Poll poll = services.signIns.poll(nonce, now(), connect);
    boost::json::object answer{{"state", nameOf(poll.state)}};
    if (poll.state == SignInState::connected) {
        answer = claimFor(services, poll.token);
        answer["state"] = nameOf(poll.state);
        answer["device_name"] = poll.deviceName;
    }
    return BoxReply::json(200, answer);
}

BoxReply portal(const Services& services) {
    return page(
        200, fmt::format("{}: Settings", services.account.client()),
        "<p>To connect a device, make a code and type it in there.</p>\n"
        "<form method=\"post\" action=\"/portal/code\"><button id=\"make\">Make a code</button></form>");
}

BoxReply codePage(Services& services) {
    return page(
        200, "Your code",
        fmt::format("<p><strong id=\"code\">{}</strong></p>\n<p>It connects one device, and is good for "
                    "{:.0f} seconds.</p>",
                    services.signIns.makeCode(now()), services.signIns.lastsSeconds()));
}

BoxReply connectPage(const Services& services, std::string_view key, const SignIns::Poll& signIn) {
    const std::string& company = services.account.client();
    const std::string& device = signIn.deviceName;
    switch (signIn.state) {
        case SignInState::pending:
            return page(200, fmt::format("{} wants to connect to {}", device, company),
                        fmt::format("<p>Say yes only if you have just asked for this on that device.</p>\n"
                                    "<form method=\"post\" action=\"/portal/connect/{0}/yes\">"
                                    "<button id=\"yes\">Yes</button></form>\n"
                                    "<form method=\"post\" action=\"/portal/connect/{0}/no\">"
                                    "<button id=\"no\">No</button></form>",
                                    escapedHTML(key)));
        case SignInState::connected:
            return page(200, fmt::format("{} is connected to {}", device, company),
                        "<p>You may close this page.</p>");
        case SignInState::refused:
            return page(200, fmt::format("{} was not connected", device), "<p>You may close this page.</p>");
        case SignInState::expired:
            return page(410, "This sign-in has run out", "<p>Start it again on the device.</p>");
    }
    return {};
}

void addPortal(Router& router, Services& services) {
    using Arguments = Router::Arguments;
    router.add("GET", "/portal", Door::open,
               [&services](const BoxRequest&, const Arguments&) { return portal(services); });
    router.add("POST", "/portal/code", Door::open,
               [&services](const BoxRequest&, const Arguments&) { return codePage(services); });
    router.add("GET", "/portal/connect/{}", Door::open,
               [&services](const BoxRequest&, const Arguments& arguments) {
                   return pageOrRefusal([&] {
                       return connectPage(services, arguments[0], services.signIns.look(arguments[0], now()));
                   });
               });
    for (bool yes : {true, false}) {
        router.add("POST", yes ? "/portal/connect/{}/yes" : "/portal/connect/{}/no", Door::open,
                   [&services, yes](const BoxRequest&, const Arguments& arguments) {
                       return pageOrRefusal([&] {
                           return connectPage(services, arguments[0],
                                              services.signIns.answer(arguments[0], yes, now()));
                       });
                   });
    }
}

}  // namespace

void addSignInRoutes(Router& router, Services& services) {
    router.add("POST", "/api/device/claim", Door::open,
               [&services](const BoxRequest& request, const auto&) { return claim(services, request); });
    router.add("POST", "/api/device/begin", Door::open, [&services](const BoxRequest& request, const auto&) {
        return beginSignIn(services, request);
    });
    router.add("GET", "/api/device/poll/{}", Door::open,
               [&services](const BoxRequest&, const Router::Arguments& arguments) {
                   return poll(services, arguments[0]);
               });
    router.add("POST", "/control/codes", Door::open, [&services](const auto&, const auto&) {
        return BoxReply::json(201, boost::json::object{{"code", services.signIns.makeCode(now())}});
    });
    addPortal(router, services);
}

}  // namespace vark::box
