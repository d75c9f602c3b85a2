#include "VarkReplica/ReplicaStore.h"

namespace vark {
namespace {

constexpr const char* setup = R"(
PRAGMA journal_mode = WAL;
PRAGMA synchronous = NORMAL;
PRAGMA busy_timeout = 5000;
BEGIN IMMEDIATE;
CREATE TABLE IF NOT EXISTS items(
  ino INTEGER PRIMARY KEY AUTOINCREMENT,
  parent INTEGER,
  name TEXT NOT NULL,
  position INTEGER NOT NULL,
  kind INTEGER NOT NULL,
  size INTEGER NOT NULL DEFAULT 0,
  mtime_ns INTEGER NOT NULL DEFAULT 0,
  mode INTEGER NOT NULL,
  target TEXT NOT NULL DEFAULT '',
  content INTEGER NOT NULL DEFAULT 0,
  held INTEGER NOT NULL DEFAULT 0,
  id INTEGER,
  there_parent INTEGER,
  there_name TEXT NOT NULL DEFAULT '',
  there_size INTEGER NOT NULL DEFAULT 0,
  there_mtime REAL,
  there_sha TEXT NOT NULL DEFAULT '',
  owed INTEGER NOT NULL DEFAULT 0,
  since REAL,
  tries INTEGER NOT NULL DEFAULT 0,
  not_before REAL,
  reason TEXT,
  began_path TEXT,
  began_sha TEXT,
  settled INTEGER NOT NULL DEFAULT 0,
  stale INTEGER NOT NULL DEFAULT 0,
  copy INTEGER,
  copy_at REAL,
  pinned INTEGER NOT NULL DEFAULT 0,
  used REAL,
  listed INTEGER,
  learnt INTEGER NOT NULL DEFAULT 0);
CREATE UNIQUE INDEX IF NOT EXISTS items_by_place ON items(parent, name);
CREATE UNIQUE INDEX IF NOT EXISTS items_by_id ON items(id);
CREATE INDEX IF NOT EXISTS items_by_position ON items(parent, position);
CREATE INDEX IF NOT EXISTS items_owed ON items(since) WHERE owed <> 0;
CREATE INDEX IF NOT EXISTS items_stale ON items(learnt) WHERE stale <> 0;
CREATE VIEW IF NOT EXISTS records AS
  SELECT ino, position, parent, name, kind, size, mtime_ns, mode, target, id, there_parent, there_name,
    there_size, there_mtime, there_sha, owed, content, held, stale, listed, learnt FROM items;
CREATE TABLE IF NOT EXISTS blocks(
  ino INTEGER NOT NULL,
  content INTEGER NOT NULL,
  map BLOB NOT NULL,
  boot TEXT NOT NULL,
  PRIMARY KEY(ino, content)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS removed(
  id INTEGER PRIMARY KEY,
  learnt INTEGER NOT NULL,
  at REAL NOT NULL);
CREATE TABLE IF NOT EXISTS state(
  key TEXT PRIMARY KEY,
  value NOT NULL) WITHOUT ROWID;
INSERT OR IGNORE INTO items(ino, name, position, kind, mode) VALUES(1, '', 1, 1, 493);
INSERT OR IGNORE INTO state(key, value) VALUES('schema', 1);
COMMIT;
)";

constexpr const char* readersSetup = "PRAGMA busy_timeout = 5000;";

/// Of a row of the view `records`.
Record recordOf(const Query& row) {
    Record record;
    record.ino = row.integer(0);
    record.position = row.integer(1);
    record.here.parent = row.optionalInteger(2);
    record.here.name = row.text(3);
    record.here.kind = static_cast<Kind>(row.integer(4));
    record.here.size = row.integer(5);
    record.here.mtime = row.integer(6);
    record.here.mode = static_cast<mode_t>(row.integer(7));
    record.here.target = row.text(8);
    if (const std::optional<std::int64_t> id = row.optionalInteger(9)) {
        record.there = There{
            *id, row.optionalInteger(10), row.text(11), row.integer(12), row.optionalReal(13), row.text(14)};
    }
    record.owed = static_cast<Owed>(row.integer(15));
    record.content = row.integer(16);
    record.held = static_cast<Held>(row.integer(17));
    record.stale = row.integer(18) != 0;
    record.listed = row.optionalInteger(19);
    record.learnt = row.integer(20);
    return record;
}

std::optional<Record> oneOf(Query& query) {
    if (!query.next()) return std::nullopt;
    return recordOf(query);
}

/// Binds all but the first two, in the order of that view.
void bind(Query& query, const Record& record) {
    const Here& here = record.here;
    query.with(here.parent, here.name, static_cast<int>(here.kind), here.size, here.mtime,
               std::int64_t{here.mode}, here.target);
    const There there = record.there.value_or(There{});
    query.with(record.there ? std::optional(there.id) : std::nullopt, there.parent, there.name, there.size,
               there.mtime, there.sha256);
    query.with(static_cast<std::int64_t>(record.owed), record.content, static_cast<int>(record.held),
               record.stale, record.listed, record.learnt);
}

}  // namespace

ReplicaStore::ReplicaStore(const ReplicaFiles& files)
    : path_(files.database()), writer_(files.database(), setup) {}

ReplicaStore::Reading::Lease::Lease(ReplicaStore& owner) : store(owner) {
    {
        Locked locked(store.lock_);
        if (!store.idle_.empty()) {
            connection = std::move(store.idle_.back());
            store.idle_.pop_back();
            return;
        }
    }
    connection = std::make_unique<Database>(store.path_, readersSetup, Database::Access::reading);
}

ReplicaStore::Reading::Lease::~Lease() {
    Locked locked(store.lock_);
    store.idle_.push_back(std::move(connection));
}

std::optional<Record> ItemRows::withIno(Ino ino) {
    Query query = turn_.query("SELECT * FROM records WHERE ino = ?");
    return oneOf(query.with(ino));
}

std::optional<Record> ItemRows::withID(std::int64_t id) {
    Query query = turn_.query("SELECT * FROM records WHERE id = ?");
    return oneOf(query.with(id));
}

std::optional<Record> ItemRows::at(Ino folder, std::string_view name) {
    Query query = turn_.query("SELECT * FROM records WHERE parent = ? AND name = ?");
    return oneOf(query.with(folder, name));
}

std::vector<Ino> ItemRows::shownIn(Ino folder) {
    std::vector<Ino> all;
    Query query = turn_.query("SELECT ino FROM items WHERE parent = ?");
    query.with(folder);
    while (query.next())
        all.push_back(query.integer(0));
    return all;
}

std::vector<Record> ItemRows::stale(std::size_t most) {
    std::vector<Record> all;
    Query query = turn_.query("SELECT * FROM records WHERE stale <> 0 ORDER BY learnt LIMIT ?");
    query.with(static_cast<std::int64_t>(most));
    while (query.next())
        all.push_back(recordOf(query));
    return all;
}

Ino ItemRows::add(const Record& record) {
    Query query = turn_.query(
        "INSERT INTO items(ino, position, parent, name, kind, size, mtime_ns, mode, target, "
        "id, there_parent, there_name, there_size, there_mtime, there_sha, owed, content, "
        "held, stale, listed, learnt) SELECT seq + 1, ifnull(?, seq + 1), "
        "?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ? "
        "FROM sqlite_sequence WHERE name = 'items'");
    query.with(record.position == 0 ? std::nullopt : std::optional(record.position));
    bind(query, record);
    query.run();
    return turn_.lastInsertedID();
}

void ItemRows::set(const Record& record) {
    Query query = turn_.query(
        "UPDATE items SET parent = ?, name = ?, kind = ?, size = ?, mtime_ns = ?, mode = ?, target = ?, id = "
        "?, "
        "there_parent = ?, there_name = ?, there_size = ?, there_mtime = ?, there_sha = ?, owed = ?, content "
        "= ?, "
        "held = ?, stale = ?, listed = ?, learnt = ?, position = ? WHERE ino = ?");
    bind(query, record);
    query.with(record.position, record.ino).run();
}

void ItemRows::remove(Ino ino) {
    turn_.query("DELETE FROM items WHERE ino = ?").with(ino).run();
    turn_.query("DELETE FROM blocks WHERE ino = ?").with(ino).run();
}

std::optional<std::string> StateRows::text(std::string_view key) {
    Query query = turn_.query("SELECT value FROM state WHERE key = ?");
    if (!query.with(key).next()) return std::nullopt;
    return query.text(0);
}

std::int64_t StateRows::number(std::string_view key) {
    Query query = turn_.query("SELECT value FROM state WHERE key = ?");
    return query.with(key).next() ? query.integer(0) : 0;
}

void StateRows::set(std::string_view key, std::string_view value) {
    turn_.query("INSERT OR REPLACE INTO state(key, value) VALUES(?, ?)").with(key, value).run();
}

void StateRows::set(std::string_view key, std::int64_t value) {
    turn_.query("INSERT OR REPLACE INTO state(key, value) VALUES(?, ?)").with(key, value).run();
}

}  // namespace vark
