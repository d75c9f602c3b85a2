#include "VarkBox/Store/Database.h"

#include <fmt/format.h>
#include <sqlite3.h>

namespace vark::box {

namespace {

// The root has a lock of its own, so SQLite need not take its locks afresh for each transaction. A checkpoint
// syncs, so it is made seldom.
constexpr const char* settings = R"(
PRAGMA locking_mode = EXCLUSIVE;
PRAGMA journal_mode = WAL;
PRAGMA synchronous = NORMAL;
PRAGMA wal_autocheckpoint = 10000;
)";

// Ids are never used twice: a client remembers them for good.
constexpr const char* schema = R"(
BEGIN IMMEDIATE;
CREATE TABLE IF NOT EXISTS items(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  parent INTEGER,
  name TEXT NOT NULL,
  is_dir INTEGER NOT NULL,
  size INTEGER NOT NULL DEFAULT 0,
  mtime REAL,
  sha256 TEXT NOT NULL DEFAULT '',
  area TEXT);
INSERT OR IGNORE INTO items(id, name, is_dir) VALUES(0, '', 1);
CREATE UNIQUE INDEX IF NOT EXISTS items_by_place ON items(parent, name);
CREATE TABLE IF NOT EXISTS changes(
  number INTEGER PRIMARY KEY AUTOINCREMENT,
  at REAL NOT NULL,
  item INTEGER NOT NULL,
  was_under TEXT NOT NULL);
CREATE INDEX IF NOT EXISTS changes_by_time ON changes(at);
CREATE TABLE IF NOT EXISTS bin(
  number INTEGER PRIMARY KEY AUTOINCREMENT,
  item INTEGER NOT NULL,
  original_path TEXT NOT NULL,
  bin_path TEXT NOT NULL UNIQUE,
  deleted_by TEXT NOT NULL);
CREATE INDEX IF NOT EXISTS bin_by_path ON bin(original_path);
CREATE TABLE IF NOT EXISTS uploads(
  id TEXT PRIMARY KEY,
  path TEXT NOT NULL,
  size INTEGER NOT NULL,
  sha256 TEXT NOT NULL,
  mtime REAL,
  replaces INTEGER NOT NULL,
  ingest INTEGER,
  source TEXT,
  chunk_size INTEGER NOT NULL,
  state TEXT NOT NULL,
  error TEXT NOT NULL DEFAULT '') WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS uploads_open ON uploads(path, sha256, size)
  WHERE state IN ('receiving', 'checking');
CREATE TABLE IF NOT EXISTS chunks(
  upload TEXT NOT NULL,
  number INTEGER NOT NULL,
  PRIMARY KEY(upload, number)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS tags(
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE);
CREATE TABLE IF NOT EXISTS item_tags(
  item INTEGER NOT NULL,
  tag INTEGER NOT NULL,
  PRIMARY KEY(item, tag)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS ingests(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  announced TEXT NOT NULL,
  finished TEXT);
CREATE TABLE IF NOT EXISTS diagnostics(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  at REAL NOT NULL,
  report TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS nodes(
  number INTEGER PRIMARY KEY AUTOINCREMENT,
  host TEXT NOT NULL UNIQUE,
  attached INTEGER NOT NULL);
CREATE TABLE IF NOT EXISTS devices(
  token_hash TEXT PRIMARY KEY,
  name TEXT NOT NULL,
  is_first INTEGER NOT NULL,
  signed_out INTEGER NOT NULL DEFAULT 0,
  code TEXT) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS shares(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  key TEXT NOT NULL UNIQUE,
  is_for_company INTEGER NOT NULL,
  until REAL,
  message TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS share_items(
  number INTEGER PRIMARY KEY,
  share INTEGER NOT NULL,
  item INTEGER NOT NULL);
CREATE INDEX IF NOT EXISTS share_items_by_share ON share_items(share);
CREATE TABLE IF NOT EXISTS jobs(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  ref TEXT NOT NULL,
  title TEXT NOT NULL,
  client TEXT NOT NULL,
  artist TEXT NOT NULL,
  date TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS job_items(
  job INTEGER NOT NULL,
  item INTEGER NOT NULL,
  PRIMARY KEY(job, item)) WITHOUT ROWID;
COMMIT;
)";

}  // namespace

Query::~Query() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
}

bool Query::next() {
    int code = sqlite3_step(statement_);
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    check(code);
    return false;
}

void Query::run() {
    if (next()) throw DatabaseError("A statement that only writes gave a row.");
}

bool Query::isNull(int column) const {
    return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

std::int64_t Query::integer(int column) const {
    return sqlite3_column_int64(statement_, column);
}

double Query::real(int column) const {
    return sqlite3_column_double(statement_, column);
}

std::string Query::text(int column) const {
    const void* bytes = sqlite3_column_blob(statement_, column);
    if (bytes == nullptr) return {};
    return {static_cast<const char*>(bytes),
            static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
}

std::optional<std::int64_t> Query::optionalInteger(int column) const {
    if (isNull(column)) return std::nullopt;
    return integer(column);
}

std::optional<double> Query::optionalReal(int column) const {
    if (isNull(column)) return std::nullopt;
    return real(column);
}

void Query::bind(std::int64_t value) {
    check(sqlite3_bind_int64(statement_, ++bound_, value));
}

void Query::bind(double value) {
    check(sqlite3_bind_double(statement_, ++bound_, value));
}

void Query::bind(std::string_view value) {
    // A null pointer would bind NULL, and an empty text is not that.
    const char* bytes = value.empty() ? "" : value.data();
    check(sqlite3_bind_text64(statement_, ++bound_, bytes, value.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
}

void Query::bindNull() {
    check(sqlite3_bind_null(statement_, ++bound_));
}

void Query::check(int code) const {
    if (code == SQLITE_OK) return;
    throw DatabaseError(fmt::format("The box could not use its records: {}.", sqlite3_errmsg(connection_)));
}

Database::Database(const std::filesystem::path& path) {
    int code = sqlite3_open_v2(path.c_str(), &connection_,
                               SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    try {
        if (code != SQLITE_OK) {
            throw DatabaseError(fmt::format("Could not open {}: {}.", path.string(), sqlite3_errstr(code)));
        }
        execute(settings);
        execute(schema);
    } catch (...) {
        sqlite3_close_v2(connection_);
        throw;
    }
}

Database::~Database() {
    for (const auto& [sql, statement] : statements_)
        sqlite3_finalize(statement);
    sqlite3_close_v2(connection_);
}

void Database::execute(const char* sql) {
    if (sqlite3_exec(connection_, sql, nullptr, nullptr, nullptr) == SQLITE_OK) return;
    throw DatabaseError(fmt::format("The box could not use its records: {}.", sqlite3_errmsg(connection_)));
}

sqlite3_stmt* Database::prepared(std::string_view sql) {
    if (auto found = statements_.find(sql); found != statements_.end()) {
        if (sqlite3_stmt_busy(found->second) != 0)
            throw std::logic_error("A statement was run inside itself.");
        return found->second;
    }
    sqlite3_stmt* statement = nullptr;
    int code = sqlite3_prepare_v3(connection_, sql.data(), static_cast<int>(sql.size()),
                                  SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (code != SQLITE_OK) {
        throw DatabaseError(
            fmt::format("The box could not use its records: {}.", sqlite3_errmsg(connection_)));
    }
    // The statement keeps a copy of its text, which thus lives as long as the entry.
    statements_.emplace(sqlite3_sql(statement), statement);
    return statement;
}

Database::Turn::Turn(Database& database, Kind kind)
    : database_(database), lock_(database.lock_), open_(kind == Kind::writing) {
    if (open_) query("BEGIN IMMEDIATE").run();
}

Database::Turn::~Turn() {
    if (!open_) return;
    // A rollback fails only where SQLite has rolled back by itself.
    sqlite3_exec(database_.connection_, "ROLLBACK", nullptr, nullptr, nullptr);
}

Query Database::Turn::query(std::string_view sql) {
    return Query(database_.connection_, database_.prepared(sql));
}

void Database::Turn::commit() {
    query("COMMIT").run();
    open_ = false;
}

std::int64_t Database::Turn::changedRows() const {
    return sqlite3_changes64(database_.connection_);
}

std::int64_t Database::Turn::lastInsertedID() const {
    return sqlite3_last_insert_rowid(database_.connection_);
}

}  // namespace vark::box
