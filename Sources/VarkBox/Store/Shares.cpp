#include "VarkBox/Store/Shares.h"

#include <limits>

#include "VarkBox/HTTP/Exchange.h"
#include "VarkBox/Store/Hasher.h"

namespace vark::box {

Share Shares::make(Share share) {
    share.key = randomHex(12);
    turn_.query("INSERT INTO shares(key, is_for_company, until, message) VALUES(?, ?, ?, ?)")
        .with(share.key, share.isForCompany, share.until, share.message)
        .run();
    share.id = turn_.lastInsertedID();
    for (std::int64_t item : share.items) {
        turn_.query("INSERT INTO share_items(share, item) VALUES(?, ?)").with(share.id, item).run();
    }
    return share;
}

Share Shares::require(std::string_view key, double now) {
    Share share{.key = std::string(key)};
    {
        Query query = turn_.query("SELECT id, is_for_company, until, message FROM shares WHERE key = ?");
        if (!query.with(key).next())
            throw Refusal(404, "There is no such share. Was its address copied whole?");
        share.id = query.integer(0);
        share.isForCompany = query.integer(1) != 0;
        share.until = query.optionalReal(2);
        share.message = query.text(3);
    }
    if (share.until && now >= *share.until)
        throw Refusal(410, "This share has run out. Ask whoever sent it for a new one.");
    Query query = turn_.query("SELECT item FROM share_items WHERE share = ? ORDER BY number");
    query.with(share.id);
    while (query.next())
        share.items.push_back(query.integer(0));
    return share;
}

std::vector<SharedFile> Shares::files(const Share& share) {
    Tree tree(turn_);
    std::vector<SharedFile> files;
    for (std::int64_t id : share.items) {
        if (std::optional<Item> item = tree.find(id)) collect(tree, *item, item->name, files);
    }
    return files;
}

void Shares::collect(Tree& tree, const Item& item, const std::string& path, std::vector<SharedFile>& files) {
    if (!item.isDir) {
        files.push_back({item, path});
        return;
    }
    for (const Item& child : tree.children(item.id, "", std::numeric_limits<std::int64_t>::max()))
        collect(tree, child, path.empty() ? child.name : path + "/" + child.name, files);
}

}  // namespace vark::box
