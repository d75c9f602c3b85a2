#include "VarkBox/Store/ChangeFeed.h"

#include <fmt/format.h>

#include <charconv>
#include <chrono>
#include <unordered_set>

#include "VarkBox/HTTP/Exchange.h"

namespace vark::box {

namespace {

struct Place {
    double seconds = 0;
    std::int64_t number = 0;
};

struct Change {
    Place place;
    std::int64_t item = 0;
    std::string wasUnder;
};

std::string cursorText(Place place) {
    return fmt::format("{:.6f}|{}", place.seconds, place.number);
}

template <class T>
bool readWhole(std::string_view text, T& value) {
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

Place placeFrom(std::string_view cursor) {
    Place place;
    std::size_t bar = cursor.find('|');
    bool good = bar != std::string_view::npos && readWhole(cursor.substr(0, bar), place.seconds) &&
                readWhole(cursor.substr(bar + 1), place.number) && place.number >= 0;
    if (!good) throw Refusal(400, "That is no place in the list of changes. List the folder afresh.");
    return place;
}

}  // namespace

std::string ChangeFeed::end() {
    Query query = turn_.query("SELECT at, number FROM changes ORDER BY number DESC LIMIT 1");
    // Without a change yet, the whole feed lies ahead.
    if (!query.next()) return cursorText({});
    return cursorText({query.real(0), query.integer(1)});
}

ChangesPage ChangeFeed::page(std::int64_t under, std::string_view since, std::int64_t limit) {
    Place start = placeFrom(since);
    std::vector<Change> changes;
    {
        // One row more than asked for tells whether there is more.
        Query query = turn_.query(
            start.number > 0
                ? "SELECT at, number, item, was_under FROM changes WHERE number > ? ORDER BY number LIMIT ?"
                : "SELECT at, number, item, was_under FROM changes WHERE at >= ? ORDER BY number LIMIT ?");
        if (start.number > 0) {
            query.with(start.number, limit + 1);
        } else {
            query.with(start.seconds, limit + 1);
        }
        while (query.next()) {
            changes.push_back({{query.real(0), query.integer(1)}, query.integer(2), query.text(3)});
        }
    }
    ChangesPage page;
    page.more = std::cmp_greater(changes.size(), limit);
    if (page.more) changes.pop_back();
    page.cursor = changes.empty() ? std::string(since) : cursorText(changes.back().place);

    Tree tree(turn_);
    std::string folder = fmt::format("/{}/", under);
    std::unordered_set<std::int64_t> told;
    for (const Change& change : changes) {
        std::string lineage = tree.lineage(change.item);
        bool isUnder = lineage.find(folder) != std::string::npos && change.item != under;
        bool wasUnder = change.wasUnder.find(folder) != std::string::npos && change.item != under;
        if (!isUnder && !wasUnder) continue;
        if (!told.insert(change.item).second) continue;
        if (isUnder) {
            page.changed.push_back(*tree.find(change.item));
        } else {
            page.gone.push_back(change.item);
        }
    }
    return page;
}

}  // namespace vark::box
