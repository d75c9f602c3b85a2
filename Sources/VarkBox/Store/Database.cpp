#include "VarkBox/Store/Database.h"

namespace vark::box {
namespace {

// The root has a lock of its own, so SQLite need not take its locks afresh for each transaction. What was
// committed outlives the process; a loss of power costs the last commits but never their order. A checkpoint
// syncs, so it is made seldom.
constexpr const char* setup = R"(
PRAGMA locking_mode = EXCLUSIVE;
PRAGMA journal_mode = WAL;
PRAGMA synchronous = NORMAL;
PRAGMA wal_autocheckpoint = 10000;

-- Ids are never used twice: a client remembers them for good.
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

Database::Database(const std::filesystem::path& path) : vark::Database(path, setup) {}

}  // namespace vark::box
