#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "VarkBox/HTTP/JSONBody.h"
#include "VarkBox/HTTP/Page.h"
#include "VarkBox/Routes/Services.h"
#include "VarkBox/Store/Shares.h"
#include "VarkCore/Foundation/Time/Date.h"

namespace vark::box {

namespace {

struct Expiry {
    std::string_view name;
    double seconds;
    /// Follows the words "runs out".
    std::string_view words;
};

constexpr double day = 86400;
constexpr std::array<Expiry, 4> expiries = {
    Expiry{"24h", day, "in 24 hours"}, Expiry{"7d", 7 * day, "in 7 days"},
    Expiry{"30d", 30 * day, "in 30 days"}, Expiry{"90d", 90 * day, "in 90 days"}};

const Expiry* expiryFrom(const JSONBody& json) {
    auto name = json.optional<std::string>("expiry");
    if (!name) return nullptr;
    auto found = std::ranges::find(expiries, *name, &Expiry::name);
    if (found == expiries.end())
        throw Refusal(400, fmt::format("A share cannot run out after \"{}\". Choose one of: {}.", *name,
                                       "24h, 7d, 30d, 90d"));
    return &*found;
}

bool isForCompany(const JSONBody& json) {
    auto mode = json.required<std::string>("mode");
    if (mode != "link" && mode != "domain")
        throw Refusal(400, fmt::format("There is no audience \"{}\". It is \"link\" or \"domain\".", mode));
    return mode == "domain";
}

BoxReply share(Services& services, const BoxRequest& request) {
    JSONBody json(request.body);
    auto paths = json.required<std::vector<std::string>>("paths");
    if (paths.empty()) throw Refusal(400, "A share needs something to share. Choose a file or a folder.");
    const Expiry* expiry = expiryFrom(json);
    Share share{.isForCompany = isForCompany(json)};
    share.message = json.optional<std::string>("message").value_or("");
    if (expiry != nullptr) share.until = now() + expiry->seconds;
    Turn turn = services.database.write();
    Tree tree(turn);
    std::string title;
    for (const std::string& path : paths) {
        Item item = tree.require(path);
        if (share.items.empty()) title = item.id == rootID ? services.account.client() : item.name;
        share.items.push_back(item.id);
    }
    if (paths.size() > 1) title += fmt::format(" and {} more", paths.size() - 1);
    share = Shares(turn).make(std::move(share));
    turn.commit();

    boost::json::object answer{
        {"url", fmt::format("{}/s/{}", services.url, share.key)},
        {"title", title},
        {"audience", share.isForCompany ? fmt::format("everyone at {}", services.account.client())
                                        : std::string("anyone with the link")},
        {"share_id", share.id}};
    if (expiry != nullptr) {
        answer["expires"] = expiry->words;
        answer["expires_at"] = iso8601(Date::fromSince1970(*share.until));
    }
    return BoxReply::json(201, answer);
}

BoxReply sharePage(Services& services, std::string_view key) {
    Turn turn = services.database.read();
    Shares shares(turn);
    Share share = shares.require(key, now());
    std::string content;
    if (!share.message.empty())
        content += fmt::format("<p id=\"message\">{}</p>\n", escapedHTML(share.message));
    content += "<ul>\n";
    for (const SharedFile& file : shares.files(share)) {
        content +=
            fmt::format("<li><a href=\"/s/{}/{}\" download=\"{}\">{}</a> ({} bytes)</li>\n", share.key,
                        file.item.id, escapedHTML(file.item.name), escapedHTML(file.path), file.item.size);
    }
    content += "</ul>";
    return page(200, fmt::format("Shared by {}", services.account.client()), content);
}

BoxReply sharedFile(Services& services, std::string_view key, std::int64_t id) {
    Turn turn = services.database.read();
    Shares shares(turn);
    for (const SharedFile& file : shares.files(shares.require(key, now()))) {
        if (file.item.id != id) continue;
        BoxReply reply;
        reply.contentType = "application/octet-stream";
        reply.file = FileSlice{services.files.openObject(file.item.sha256), 0,
                               static_cast<std::uint64_t>(file.item.size)};
        return reply;
    }
    throw Refusal(404, "This file is not in the share. It may have been moved or binned.");
}

}  // namespace

void addShareRoutes(Router& router, Services& services) {
    using Arguments = Router::Arguments;
    router.add("POST", "/api/shares", Door::reader,
               [&services](const BoxRequest& request, const Arguments&) { return share(services, request); });
    router.add("GET", "/s/{}", Door::open, [&services](const BoxRequest&, const Arguments& arguments) {
        return pageOrRefusal([&] { return sharePage(services, arguments[0]); });
    });
    router.add("GET", "/s/{}/{}", Door::open, [&services](const BoxRequest&, const Arguments& arguments) {
        return pageOrRefusal(
            [&] { return sharedFile(services, arguments[0], numberFrom(arguments[1], "The id of a file")); });
    });
}

}  // namespace vark::box
