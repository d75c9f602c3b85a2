#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>

struct sqlite3;
struct sqlite3_stmt;

namespace vark {

/// SQLite could not do something, with a finished sentence that names the file.
class DatabaseError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// One run of a prepared statement. Bind in order, then step. Lives within its `Turn`; gives the statement
/// back at its end, so one SQL text cannot be run twice at once.
class Query {
  public:
    Query(sqlite3* connection, sqlite3_stmt* statement) : connection_(connection), statement_(statement) {}
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;
    ~Query();

    template <class... Values>
    Query& with(const Values&... values) {
        (bind(values), ...);
        return *this;
    }

    /// Whether there is a further row.
    bool next();
    /// Runs a statement that gives no rows.
    void run();

    bool isNull(int column) const;
    std::int64_t integer(int column) const;
    double real(int column) const;
    std::string text(int column) const;
    std::optional<std::int64_t> optionalInteger(int column) const;
    std::optional<double> optionalReal(int column) const;

  private:
    void bind(std::int64_t value);
    void bind(int value) { bind(std::int64_t{value}); }
    void bind(bool value) { bind(std::int64_t{value}); }
    void bind(double value);
    void bind(std::string_view value);
    void bind(const std::string& value) { bind(std::string_view(value)); }
    void bind(const char* value) { bind(std::string_view(value)); }
    void bindNull();
    template <class T>
    void bind(const std::optional<T>& value) {
        if (value) {
            bind(*value);
        } else {
            bindNull();
        }
    }
    void check(int code) const;

    sqlite3* connection_;
    sqlite3_stmt* statement_;
    int bound_ = 0;
};

/// One SQLite connection behind one lock. Any thread; whoever wants to read or write takes a `Turn` and holds
/// it as shortly as may be. Everything fails with `DatabaseError`.
class Database {
  public:
    /// Only what is opened for writing makes a file that is not there.
    enum class Access { reading, writing };

    /// `setup` is run once: settings of the connection, and tables that are not there yet.
    Database(const std::filesystem::path& path, const char* setup, Access access = Access::writing);
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database();

    /// The right to use the connection. A writing turn is one transaction, undone unless it was committed.
    class Turn {
      public:
        enum class Kind { reading, writing };

        Turn(Database& database, Kind kind);
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        ~Turn();

        Query query(std::string_view sql);
        void commit();
        /// Rows that the last statement changed.
        std::int64_t changedRows() const;
        std::int64_t lastInsertedID() const;

      private:
        Database& database_;
        std::unique_lock<std::mutex> lock_;
        bool open_;
    };

    Turn read() { return Turn(*this, Turn::Kind::reading); }
    Turn write() { return Turn(*this, Turn::Kind::writing); }

  private:
    sqlite3_stmt* prepared(std::string_view sql);

    std::mutex lock_;
    sqlite3* connection_ = nullptr;
    std::unordered_map<std::string_view, sqlite3_stmt*> statements_;
};

using Turn = Database::Turn;

}  // namespace vark
