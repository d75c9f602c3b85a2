#include "VarkCore/Foundation/SQLite.h"

#include <fmt/format.h>
#include <sqlite3.h>

namespace vark {

namespace {

[[noreturn]] void fail(sqlite3* connection) {
    const char* file = sqlite3_db_filename(connection, "main");
    throw DatabaseError(fmt::format("Could not use {}: {}.", file == nullptr ? "a database" : file,
                                    sqlite3_errmsg(connection)));
}

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
    if (code != SQLITE_OK) fail(connection_);
}

Database::Database(const std::filesystem::path& path, const char* setup, Access access) {
    const int how =
        access == Access::writing ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY;
    const int code = sqlite3_open_v2(path.c_str(), &connection_, how | SQLITE_OPEN_NOMUTEX, nullptr);
    try {
        if (code != SQLITE_OK)
            throw DatabaseError(fmt::format("Could not open {}: {}.", path.string(), sqlite3_errstr(code)));
        if (sqlite3_exec(connection_, setup, nullptr, nullptr, nullptr) != SQLITE_OK) fail(connection_);
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

sqlite3_stmt* Database::prepared(std::string_view sql) {
    if (auto found = statements_.find(sql); found != statements_.end()) {
        if (sqlite3_stmt_busy(found->second) != 0)
            throw std::logic_error("A statement was run inside itself.");
        return found->second;
    }
    sqlite3_stmt* statement = nullptr;
    int code = sqlite3_prepare_v3(connection_, sql.data(), static_cast<int>(sql.size()),
                                  SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (code != SQLITE_OK) fail(connection_);
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

}  // namespace vark
