#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Foundation/SQLite.h"
#include "VarkReplica/ReplicaFiles.h"
#include "VarkReplica/ReplicaRecord.h"

namespace vark {

/// The database of one replica: one connection that writes, behind one lock, and as many that read as are
/// used at once, so that nobody who looks waits for whoever writes. Any thread. What was committed outlives
/// the process; a loss of power costs the last commits and never their order. Everything fails with
/// `DatabaseError`.
class ReplicaStore {
  public:
    /// Makes the tables that are not there yet. The folders are there.
    explicit ReplicaStore(const ReplicaFiles& files);

    /// A reading connection from here to the end of the block.
    class Reading {
      public:
        explicit Reading(ReplicaStore& store) : lease_(store), turn_(lease_.connection->read()) {}
        Turn& turn() { return turn_; }

      private:
        struct Lease {
            explicit Lease(ReplicaStore& store);
            Lease(const Lease&) = delete;
            Lease& operator=(const Lease&) = delete;
            ~Lease();
            ReplicaStore& store;
            std::unique_ptr<Database> connection;
        };
        Lease lease_;
        Turn turn_;
    };

    Reading read() { return Reading(*this); }
    Turn write() { return writer_.write(); }

  private:
    const std::filesystem::path path_;
    Database writer_;
    Mutex lock_;
    std::vector<std::unique_ptr<Database>> idle_ VARK_GUARDED_BY(lock_);
};

/// The rows of the items, within one turn.
class ItemRows {
  public:
    explicit ItemRows(Turn& turn) : turn_(turn) {}

    std::optional<Record> withIno(Ino ino);
    std::optional<Record> withID(std::int64_t id);
    std::optional<Record> at(Ino folder, std::string_view name);
    std::vector<Ino> shownIn(Ino folder);
    std::vector<Record> stale(std::size_t most);

    /// Gives it its number, and a position of its own if it brings none.
    Ino add(const Record& record);
    /// All of what a `Record` holds; the rest of the row stays.
    void set(const Record& record);
    /// With the map of its blocks.
    void remove(Ino ino);

  private:
    Turn& turn_;
};

/// The values under `state`, within one turn.
class StateRows {
  public:
    explicit StateRows(Turn& turn) : turn_(turn) {}
    std::optional<std::string> text(std::string_view key);
    std::int64_t number(std::string_view key);
    void set(std::string_view key, std::string_view value);
    void set(std::string_view key, std::int64_t value);

  private:
    Turn& turn_;
};

}  // namespace vark
