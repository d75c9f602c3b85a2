#include "VarkBox/HTTP/JSONBody.h"
#include "VarkBox/Routes/Services.h"
#include "VarkBox/Store/ChangeFeed.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace vark::box {

namespace {

constexpr std::int64_t usualLimit = 200;
constexpr std::int64_t highestLimit = 1000;
// Pages ahead are a gift: they must not make the answer heavy.
constexpr std::size_t mostFoldersAhead = 64;
constexpr std::int64_t mostItemsAhead = 100;

std::int64_t limitFrom(const BoxRequest& request) {
    std::optional<std::string_view> text = request.queryValue("limit");
    if (!text) return usualLimit;
    std::int64_t limit = numberFrom(*text, "The limit");
    if (limit < 1) throw Refusal(400, "The limit must be 1 or more.");
    return std::min(limit, highestLimit);
}

Item requireFolder(Tree& tree, std::int64_t id) {
    Item folder = tree.require(id);
    if (!folder.isDir) throw Refusal(400, fmt::format("\"{}\" is a file, so it has no items.", folder.name));
    return folder;
}

BoxReply whoami(Services& services, const BoxRequest& request) {
    Turn turn = services.database.read();
    const Account& account = services.account;
    return BoxReply::json(
        200,
        boost::json::object{{"email", account.email()},
                            {"client", account.client()},
                            {"level", account.level()},
                            {"level_label", account.levelLabel()},
                            {"device_name", account.deviceName(request.token.value_or(""))},
                            {"job_numbers", services.hasJobBook},
                            {"space", {{"used", Tree(turn).bytesHeld()}, {"plan", Account::bytesOfPlan()}}}});
}

BoxReply folders(Services& services, const BoxRequest& request) {
    Turn turn = services.database.read();
    Tree tree(turn);
    Item parent = tree.require(request.queryValue("path").value_or(""));
    boost::json::array folders;
    for (const Item& folder : tree.folders(parent.id)) {
        if (folder.area) {
            folders.push_back({{"name", folder.name}, {"area", *folder.area}});
        } else {
            folders.push_back(boost::json::string(folder.name));
        }
    }
    return BoxReply::json(200, boost::json::object{{"folders", std::move(folders)}});
}

BoxReply itemReply(Tree& tree, const Item& item) {
    return BoxReply::json(200, itemJSON(item, tree.path(item)));
}

BoxReply child(Services& services, const BoxRequest& request) {
    std::int64_t parentID = numberFrom(requireQuery(request, "parent"), "The parent");
    std::string_view name = requireQuery(request, "name");
    Turn turn = services.database.read();
    Tree tree(turn);
    Item parent = requireFolder(tree, parentID);
    std::optional<Item> item = tree.child(parent.id, name);
    if (!item) throw Refusal(404, fmt::format("There is no \"{}\" in \"{}\".", name, tree.path(parent)));
    return itemReply(tree, *item);
}

struct FolderPage {
    std::vector<Item> items;
    boost::json::object json;
};

/// The names are the order, so the name of the last item is where the next page goes on.
FolderPage folderPage(Tree& tree, const Item& folder, std::string_view after, std::int64_t limit) {
    FolderPage page;
    page.items = tree.children(folder.id, after, limit + 1);
    bool more = std::cmp_greater(page.items.size(), limit);
    if (more) page.items.pop_back();
    std::string path = tree.path(folder);
    boost::json::array items;
    for (const Item& item : page.items) {
        items.push_back(itemJSON(item, path.empty() ? item.name : path + "/" + item.name));
    }
    page.json["items"] = std::move(items);
    page.json["cursor"] = more ? page.items.back().name : "";
    page.json["more"] = more;
    return page;
}

BoxReply children(Services& services, const BoxRequest& request, std::string_view id) {
    std::int64_t folderID = numberFrom(id, "The id of a folder");
    std::int64_t limit = limitFrom(request);
    Turn turn = services.database.read();
    Tree tree(turn);
    FolderPage page =
        folderPage(tree, requireFolder(tree, folderID), request.queryValue("cursor").value_or(""), limit);
    if (request.queryValue("ahead") == "1") {
        boost::json::object ahead;
        for (const Item& item : page.items) {
            if (!item.isDir) continue;
            if (ahead.size() == mostFoldersAhead) break;
            ahead[fmt::to_string(item.id)] = folderPage(tree, item, "", std::min(limit, mostItemsAhead)).json;
        }
        page.json["ahead"] = std::move(ahead);
    }
    return BoxReply::json(200, page.json);
}

BoxReply changes(Services& services, const BoxRequest& request) {
    std::int64_t under = numberFrom(requireQuery(request, "under"), "The folder");
    std::int64_t limit = limitFrom(request);
    std::optional<std::string_view> since = request.queryValue("since");
    Turn turn = services.database.read();
    Tree tree(turn);
    requireFolder(tree, under);
    ChangeFeed feed(turn);
    ChangesPage page;
    if (since) {
        page = feed.page(under, *since, limit);
    } else {
        page.cursor = feed.end();
    }
    boost::json::array changed;
    for (const Item& item : page.changed)
        changed.push_back(itemJSON(item, tree.path(item)));
    return BoxReply::json(
        200, boost::json::object{{"changed", std::move(changed)},
                                 {"gone", boost::json::array(page.gone.begin(), page.gone.end())},
                                 {"cursor", page.cursor},
                                 {"more", page.more}});
}

BoxReply binned(Services& services, const BoxRequest& request) {
    Turn turn = services.database.read();
    std::optional<BinnedFile> found = Tree(turn).binned(requireQuery(request, "path"));
    if (!found) return BoxReply::json(200, boost::json::object{{"binned", false}});
    return BoxReply::json(200, boost::json::object{{"binned", true},
                                                   {"id", found->item.id},
                                                   {"is_dir", found->item.isDir},
                                                   {"size", found->item.size},
                                                   {"sha256", found->item.sha256},
                                                   {"original_path", found->originalPath},
                                                   {"deleted_by", found->deletedBy}});
}

/// Runs one change of the tree and answers with the path at which the item then lies.
template <class Change>
BoxReply change(Services& services, int status, Change run) {
    Turn turn = services.database.write();
    Tree tree(turn);
    std::string path = tree.path(run(tree));
    turn.commit();
    return BoxReply::json(status, boost::json::object{{"path", path}});
}

BoxReply bin(Services& services, const BoxRequest& request) {
    Turn turn = services.database.write();
    std::string binPath = Tree(turn).bin(requireQuery(request, "path"), services.account.email());
    turn.commit();
    return BoxReply::json(200, boost::json::object{{"bin_path", binPath}});
}

}  // namespace

std::int64_t numberFrom(std::string_view text, std::string_view what) {
    std::int64_t number = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw Refusal(400, fmt::format("{} must be a whole number.", what));
    }
    return number;
}

std::string_view requireQuery(const BoxRequest& request, std::string_view name) {
    std::optional<std::string_view> value = request.queryValue(name);
    if (!value) throw Refusal(400, fmt::format("This call needs \"{}\" in its query.", name));
    return *value;
}

void addTreeRoutes(Router& router, Services& services) {
    using Arguments = Router::Arguments;
    router.add("GET", "/api/whoami", Door::reader, [&services](const BoxRequest& request, const Arguments&) {
        return whoami(services, request);
    });
    router.add("GET", "/api/folders", Door::reader, [&services](const BoxRequest& request, const Arguments&) {
        return folders(services, request);
    });
    router.add("POST", "/api/folders", Door::writer,
               [&services](const BoxRequest& request, const Arguments&) {
                   std::string path = JSONBody(request.body).required<std::string>("path");
                   return change(services, 201, [&path](Tree& tree) { return tree.makeFolder(path); });
               });
    router.add("GET", "/api/item/{}", Door::reader,
               [&services](const BoxRequest&, const Arguments& arguments) {
                   Turn turn = services.database.read();
                   Tree tree(turn);
                   return itemReply(tree, tree.require(numberFrom(arguments[0], "The id of an item")));
               });
    router.add("GET", "/api/item", Door::reader, [&services](const BoxRequest& request, const Arguments&) {
        Turn turn = services.database.read();
        Tree tree(turn);
        return itemReply(tree, tree.require(requireQuery(request, "path")));
    });
    router.add("GET", "/api/child", Door::reader,
               [&services](const BoxRequest& request, const Arguments&) { return child(services, request); });
    router.add("GET", "/api/items/{}", Door::reader,
               [&services](const BoxRequest& request, const Arguments& arguments) {
                   return children(services, request, arguments[0]);
               });
    router.add("GET", "/api/changes", Door::reader, [&services](const BoxRequest& request, const Arguments&) {
        return changes(services, request);
    });
    router.add("GET", "/api/binned", Door::reader, [&services](const BoxRequest& request, const Arguments&) {
        return binned(services, request);
    });
    router.add("POST", "/api/files/rename", Door::writer,
               [&services](const BoxRequest& request, const Arguments&) {
                   JSONBody json(request.body);
                   std::string path = json.required<std::string>("path");
                   std::string name = json.required<std::string>("new_name");
                   return change(services, 200, [&](Tree& tree) { return tree.rename(path, name); });
               });
    router.add("POST", "/api/files/move", Door::writer,
               [&services](const BoxRequest& request, const Arguments&) {
                   JSONBody json(request.body);
                   std::string path = json.required<std::string>("path");
                   std::string folder = json.required<std::string>("to_folder");
                   return change(services, 200, [&](Tree& tree) { return tree.move(path, folder); });
               });
    router.add("DELETE", "/api/files", Door::writer,
               [&services](const BoxRequest& request, const Arguments&) { return bin(services, request); });
}

}  // namespace vark::box
