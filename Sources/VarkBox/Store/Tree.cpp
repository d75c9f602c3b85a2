#include "VarkBox/Store/Tree.h"

#include <fmt/format.h>

#include "VarkBox/HTTP/Exchange.h"
#include "VarkBox/Store/Names.h"
#include "VarkCore/Foundation/Time/Date.h"

namespace vark::box {

namespace {

// Reads a row of `SELECT * FROM items`, whose columns stand in the order of the fields.
Item itemFrom(const Query& query) {
    Item item;
    item.id = query.integer(0);
    item.parent = query.optionalInteger(1);
    item.name = query.text(2);
    item.isDir = query.integer(3) != 0;
    item.size = query.integer(4);
    item.mtime = query.optionalReal(5);
    item.sha256 = query.text(6);
    if (!query.isNull(7)) item.area = query.text(7);
    return item;
}

std::vector<Item> allOf(Query& query) {
    std::vector<Item> items;
    while (query.next())
        items.push_back(itemFrom(query));
    return items;
}

double now() {
    return systemDate().since1970();
}

Refusal nameTaken(std::string_view name) {
    return Refusal(409, fmt::format("\"{}\" is already there. Choose another name.", name),
                   {{"conflict", true}});
}

Refusal throughFile(std::string_view name) {
    return Refusal(
        400, fmt::format("\"{}\" is a file, so nothing can lie inside it. Choose another folder.", name));
}

Refusal missing(std::string_view path) {
    return Refusal(404, fmt::format("There is nothing at \"{}\". It may have been moved or binned.", path));
}

void refuseRoot(const Item& item) {
    if (item.id == rootID)
        throw Refusal(400, "The top of the vark cannot be changed. Choose something inside it.");
}

}  // namespace

std::optional<Item> Tree::row(std::int64_t id) {
    Query query = turn_.query("SELECT * FROM items WHERE id = ?");
    if (!query.with(id).next()) return std::nullopt;
    return itemFrom(query);
}

std::optional<Item> Tree::find(std::int64_t id) {
    if (lineage(id).empty()) return std::nullopt;
    return row(id);
}

std::optional<Item> Tree::find(std::string_view path) {
    std::optional<Item> item = row(rootID);
    for (const std::string& name : pathComponents(path)) {
        item = child(item->id, name);
        if (!item) return std::nullopt;
    }
    return item;
}

std::optional<Item> Tree::child(std::int64_t parent, std::string_view name) {
    Query query = turn_.query("SELECT * FROM items WHERE parent = ? AND name = ?");
    if (!query.with(parent, name).next()) return std::nullopt;
    return itemFrom(query);
}

Item Tree::require(std::int64_t id) {
    std::optional<Item> item = find(id);
    if (!item) throw Refusal(404, fmt::format("There is no item {}. It may have been binned.", id));
    return *item;
}

Item Tree::require(std::string_view path) {
    std::optional<Item> item = find(path);
    if (!item) throw missing(path);
    return *item;
}

std::vector<Item> Tree::children(std::int64_t parent, std::string_view after, std::int64_t limit) {
    Query query = turn_.query("SELECT * FROM items WHERE parent = ? AND name > ? ORDER BY name LIMIT ?");
    return allOf(query.with(parent, after, limit));
}

std::vector<Item> Tree::folders(std::int64_t parent) {
    Query query = turn_.query("SELECT * FROM items WHERE parent = ? AND is_dir = 1 ORDER BY name");
    return allOf(query.with(parent));
}

std::vector<Item> Tree::files() {
    std::vector<Item> everything;
    {
        Query query = turn_.query("SELECT * FROM items WHERE is_dir = 0 ORDER BY id");
        everything = allOf(query);
    }
    std::erase_if(everything, [this](const Item& item) { return lineage(item.id).empty(); });
    return everything;
}

std::string Tree::path(const Item& item) {
    std::string path = item.name;
    std::optional<std::int64_t> parent = item.parent;
    while (parent && *parent != rootID) {
        std::optional<Item> folder = row(*parent);
        if (!folder) break;
        path = folder->name + "/" + path;
        parent = folder->parent;
    }
    return path;
}

std::string Tree::lineage(std::int64_t id) {
    std::string lineage = "/";
    std::int64_t current = id;
    while (current != rootID) {
        Query query = turn_.query("SELECT parent FROM items WHERE id = ?");
        if (!query.with(current).next()) return {};
        std::optional<std::int64_t> parent = query.optionalInteger(0);
        if (!parent) return {};
        lineage = fmt::format("/{}{}", current, lineage);
        current = *parent;
    }
    return fmt::format("/{}{}", rootID, lineage);
}

std::int64_t Tree::bytesHeld() {
    Query query = turn_.query("SELECT coalesce(sum(size), 0) FROM items");
    query.next();
    return query.integer(0);
}

void Tree::checkWay(std::string_view path) {
    std::vector<std::string> names = pathComponents(path);
    std::int64_t folder = rootID;
    for (std::size_t i = 0; i + 1 < names.size(); ++i) {
        std::optional<Item> item = child(folder, names[i]);
        if (!item) return;
        if (!item->isDir) throw throughFile(item->name);
        folder = item->id;
    }
}

Item Tree::makeFolders(std::span<const std::string> components) {
    Item folder = *row(rootID);
    for (const std::string& name : components) {
        std::optional<Item> next = child(folder.id, name);
        if (next && !next->isDir) throw throughFile(name);
        folder = next ? *next : insert(folder.id, name, true, {.mtime = now()});
    }
    return folder;
}

Item Tree::makeFolder(std::string_view path) {
    std::vector<std::string> names = pathComponents(path);
    if (names.empty()) throw Refusal(400, "A folder needs a name. Say where it is to be made.");
    Item parent = makeFolders(std::span(names).first(names.size() - 1));
    if (child(parent.id, names.back())) throw nameTaken(names.back());
    return insert(parent.id, names.back(), true, {.mtime = now()});
}

void Tree::setArea(std::int64_t id, std::string_view area) {
    turn_.query("UPDATE items SET area = ? WHERE id = ?").with(area, id).run();
}

Item Tree::putFile(std::string_view path, const Content& content) {
    std::vector<std::string> names = pathComponents(path);
    Item parent = makeFolders(std::span(names).first(names.size() - 1));
    std::optional<Item> existing = child(parent.id, names.back());
    if (!existing) return insert(parent.id, names.back(), false, content);
    turn_.query("UPDATE items SET size = ?, mtime = ?, sha256 = ? WHERE id = ?")
        .with(content.size, content.mtime, content.sha256, existing->id)
        .run();
    noteChange(existing->id, lineage(existing->id));
    return *row(existing->id);
}

Item Tree::insert(std::int64_t parent, std::string_view name, bool isDir, const Content& content) {
    turn_.query("INSERT INTO items(parent, name, is_dir, size, mtime, sha256) VALUES(?, ?, ?, ?, ?, ?)")
        .with(parent, name, isDir, content.size, content.mtime, content.sha256)
        .run();
    std::int64_t id = turn_.lastInsertedID();
    noteChange(id, "");
    return *row(id);
}

Item Tree::rename(std::string_view path, std::string_view newName) {
    Item item = require(path);
    refuseRoot(item);
    checkName(newName);
    relocate(item, *item.parent, newName);
    return *row(item.id);
}

Item Tree::move(std::string_view path, std::string_view folder) {
    Item item = require(path);
    refuseRoot(item);
    Item target = require(folder);
    if (!target.isDir) throw throughFile(target.name);
    if (lineage(target.id).starts_with(lineage(item.id))) {
        throw Refusal(400,
                      fmt::format("\"{}\" cannot be moved into itself. Choose another folder.", item.name));
    }
    relocate(item, target.id, item.name);
    return *row(item.id);
}

void Tree::relocate(const Item& item, std::int64_t parent, std::string_view name) {
    std::optional<Item> holder = child(parent, name);
    if (holder && holder->id == item.id) return;
    if (holder) throw nameTaken(name);
    std::string wasUnder = lineage(item.id);
    turn_.query("UPDATE items SET parent = ?, name = ? WHERE id = ?").with(parent, name, item.id).run();
    noteChangeOfAll(item.id, wasUnder);
}

std::string Tree::bin(std::string_view path, std::string_view deletedBy) {
    Item item = require(path);
    refuseRoot(item);
    std::string wasUnder = lineage(item.id);
    std::string binPath = freeBinPath(item.name);
    turn_.query("INSERT INTO bin(item, original_path, bin_path, deleted_by) VALUES(?, ?, ?, ?)")
        .with(item.id, path, binPath, deletedBy)
        .run();
    turn_.query("UPDATE items SET parent = NULL WHERE id = ?").with(item.id).run();
    noteChangeOfAll(item.id, wasUnder);
    return binPath;
}

std::string Tree::freeBinPath(std::string_view name) {
    std::string path = fmt::format("Bin/{}", name);
    for (int number = 2;; ++number) {
        Query query = turn_.query("SELECT 1 FROM bin WHERE bin_path = ?");
        if (!query.with(path).next()) return path;
        path = fmt::format("Bin/{} ({})", name, number);
    }
}

std::optional<BinnedFile> Tree::binned(std::string_view path) {
    std::vector<std::string> names = pathComponents(path);
    // The thing itself went to the Bin, or one of the folders around it.
    for (std::size_t length = names.size(); length > 0; --length) {
        for (const auto& [itemID, deletedBy] : binnedFrom(joined(std::span(names).first(length)))) {
            std::optional<Item> item = row(itemID);
            for (std::size_t i = length; item && i < names.size(); ++i)
                item = child(item->id, names[i]);
            if (item) return BinnedFile{*item, std::string(path), deletedBy};
        }
    }
    return std::nullopt;
}

std::vector<std::pair<std::int64_t, std::string>> Tree::binnedFrom(std::string_view path) {
    Query query =
        turn_.query("SELECT item, deleted_by FROM bin WHERE original_path = ? ORDER BY number DESC");
    query.with(path);
    std::vector<std::pair<std::int64_t, std::string>> binned;
    while (query.next())
        binned.emplace_back(query.integer(0), query.text(1));
    return binned;
}

void Tree::noteChange(std::int64_t id, std::string_view wasUnder) {
    turn_.query("INSERT INTO changes(at, item, was_under) VALUES(?, ?, ?)").with(now(), id, wasUnder).run();
}

void Tree::noteChangeOfAll(std::int64_t id, std::string_view wasUnder) {
    turn_
        .query(R"(
WITH RECURSIVE inside(id, was_under) AS (
  VALUES(?, ?)
  UNION ALL
  SELECT items.id, inside.was_under || items.id || '/' FROM inside JOIN items ON items.parent = inside.id)
INSERT INTO changes(at, item, was_under) SELECT ?, id, was_under FROM inside)")
        .with(id, wasUnder, now())
        .run();
}

boost::json::object itemJSON(const Item& item, std::string_view path) {
    boost::json::object json;
    json["id"] = item.id;
    json["path"] = path;
    json["name"] = item.name;
    if (item.parent) json["parent"] = *item.parent;
    json["size"] = item.size;
    if (item.mtime) json["mtime"] = *item.mtime;
    json["sha256"] = item.sha256;
    json["kind"] = item.isDir ? "folder" : "file";
    json["is_dir"] = item.isDir;
    return json;
}

}  // namespace vark::box
