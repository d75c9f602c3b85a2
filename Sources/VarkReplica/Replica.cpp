#include "VarkReplica/Replica.h"

#include <algorithm>

#include "VarkReplica/Learning.h"

namespace vark {
namespace {

constexpr std::string_view counterKey = "counter";
constexpr std::string_view anchorKey = "anchor";

/// What nobody can reach any more: orphans that somebody had open when this program ended last.
void removeOrphans(Turn& turn) {
    turn.query("DELETE FROM items WHERE parent IS NULL AND id IS NULL AND owed = 0 AND ino <> ?")
        .with(rootIno)
        .run();
}

/// The top has no folder and no name, here or there.
void makeTop(Turn& turn, std::int64_t root) {
    ItemRows rows(turn);
    Record top = rows.withIno(rootIno).value();
    if (top.there && top.there->id != root)
        throw std::logic_error("This replica was made of another folder of the vark.");
    top.there.emplace();
    top.there->id = root;
    rows.set(top);
}

bool isOrphan(const Record& record) {
    return !record.here.parent && !record.there && record.owed == Owed::nothing;
}

}  // namespace

Replica::Replica(ReplicaStore& store, std::int64_t root, WallClock now)
    : store_(store), root_(root), now_(std::move(now)) {
    Turn turn = store_.write();
    makeTop(turn, root_);
    removeOrphans(turn);
    counter_ = StateRows(turn).number(counterKey);
    turn.commit();
}

std::optional<Record> Replica::lookup(Ino folder, std::string_view name) {
    ReplicaStore::Reading reading = store_.read();
    ItemRows rows(reading.turn());
    // The folder first: a name that comes in between is then found, and never taken for missing.
    const std::optional<Record> parent = rows.withIno(folder);
    if (!parent || !parent->isFolder()) throw NoSuchNode();
    std::optional<Record> row = rows.at(folder, name);
    if (!row && !parent->listed) throw NotKnown();
    return row;
}

std::optional<Record> Replica::record(Ino ino) {
    ReplicaStore::Reading reading = store_.read();
    return ItemRows(reading.turn()).withIno(ino);
}

Listing Replica::list(Ino folder, Position after, std::size_t most) {
    ReplicaStore::Reading reading = store_.read();
    // The folder first, as in `lookup`.
    const std::optional<Record> parent = ItemRows(reading.turn()).withIno(folder);
    if (!parent || !parent->isFolder()) throw NoSuchNode();

    Listing listing;
    Query query = reading.turn().query(
        "SELECT ino, position, name, kind, size, mtime_ns, mode, target FROM items "
        "WHERE parent = ? AND position > ? ORDER BY position LIMIT ?");
    query.with(folder, after, static_cast<std::int64_t>(most));
    while (query.next()) {
        listing.entries.push_back(
            Listing::Entry{query.integer(0), query.integer(1),
                           Here{folder, query.text(2), static_cast<Kind>(query.integer(3)), query.integer(4),
                                query.integer(5), static_cast<mode_t>(query.integer(6)), query.text(7)}});
    }
    listing.isAll = parent->listed && listing.entries.size() < most;
    return listing;
}

Asked Replica::ask() {
    return Asked{++counter_};
}

template <class Rule>
Learnt Replica::apply(Asked asked, Rule rule) {
    Turn turn = store_.write();
    const std::int64_t now = ++counter_;
    Learning learning(turn, root_, asked, now, now_(), [this](Ino ino) { return isOpen(ino); });
    rule(learning, turn);
    StateRows(turn).set(counterKey, now);
    turn.commit();
    return learning.finish();
}

Learnt Replica::learn(std::span<const VarkItem> items, Asked asked) {
    return apply(asked, [&](Learning& learning, Turn&) { learning.take(items); });
}

Learnt Replica::gone(std::span<const std::int64_t> ids, Asked asked) {
    return apply(asked, [&](Learning& learning, Turn&) { learning.remove(ids); });
}

Learnt Replica::learnFeed(std::span<const VarkItem> items, std::span<const std::int64_t> gone,
                          std::string anchor, Asked asked) {
    return apply(asked, [&](Learning& learning, Turn& turn) {
        learning.take(items);
        learning.remove(gone);
        StateRows(turn).set(anchorKey, anchor);
    });
}

void Replica::markListed(Ino folder, Asked asked) {
    Turn turn = store_.write();
    const std::int64_t now = ++counter_;
    turn.query("UPDATE items SET listed = ? WHERE ino = ? AND kind = 1").with(now, folder).run();
    if (turn.changedRows() == 0) throw NoSuchNode();
    turn.query("UPDATE items SET stale = 1 WHERE parent = ? AND id IS NOT NULL AND learnt < ?")
        .with(folder, asked.at)
        .run();
    StateRows(turn).set(counterKey, now);
    turn.commit();
}

std::vector<Record> Replica::stale(std::size_t most) {
    ReplicaStore::Reading reading = store_.read();
    return ItemRows(reading.turn()).stale(most);
}

std::vector<VarkItem> Replica::confirmed(Ino folder) {
    ReplicaStore::Reading reading = store_.read();
    Query query = reading.turn().query(
        "SELECT id, there_name FROM items WHERE parent = ? AND id IS NOT NULL AND stale = 0");
    query.with(folder);
    std::vector<VarkItem> items;
    while (query.next()) {
        VarkItem& item = items.emplace_back();
        item.id = query.integer(0);
        item.name = query.text(1);
    }
    return items;
}

std::optional<std::string> Replica::anchor() {
    ReplicaStore::Reading reading = store_.read();
    return StateRows(reading.turn()).text(anchorKey);
}

void Replica::setAnchor(std::string anchor) {
    Turn turn = store_.write();
    StateRows(turn).set(anchorKey, anchor);
    turn.commit();
}

bool Replica::setHeld(Ino ino, std::int64_t content, Held held) {
    Turn turn = store_.write();
    turn.query("UPDATE items SET held = ?, settled = 1 WHERE ino = ? AND content = ? AND id IS NOT NULL")
        .with(static_cast<int>(held), ino, content)
        .run();
    const bool isCurrent = turn.changedRows() > 0;
    turn.commit();
    return isCurrent;
}

bool Replica::isOpen(Ino ino) {
    Locked locked(lock_);
    return open_.contains(ino);
}

void Replica::opened(Ino ino) {
    Locked locked(lock_);
    ++open_[ino];
}

void Replica::closed(Ino ino) {
    {
        Locked locked(lock_);
        const auto found = open_.find(ino);
        if (found == open_.end() || --found->second > 0) return;
        open_.erase(found);
    }
    const std::optional<Record> row = record(ino);
    if (!row || !isOrphan(*row)) return;
    Turn turn = store_.write();
    if (isOpen(ino)) return;
    ItemRows(turn).remove(ino);
    turn.commit();
}

}  // namespace vark
