#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VarkCore/API/Messages/Items.h"
#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Foundation/Time/Date.h"
#include "VarkReplica/ReplicaRecord.h"
#include "VarkReplica/ReplicaStore.h"

namespace vark {

/// What whoever shows the replica must forget. `InodeNews`: the attributes and the bytes of a file, or the
/// kept listing of a folder. `EntryNews`: what the name leads to, or that it leads nowhere. `GoneNews`: the
/// item that stood under the name has gone, and not to another place that is shown.
struct InodeNews {
    Ino ino = 0;
    bool operator==(const InodeNews&) const = default;
};
struct EntryNews {
    Ino folder = 0;
    std::string name{};
    bool operator==(const EntryNews&) const = default;
};
struct GoneNews {
    Ino folder = 0;
    std::string name{};
    Ino ino = 0;
    bool operator==(const GoneNews&) const = default;
};
using KernelNews = std::variant<InodeNews, EntryNews, GoneNews>;

/// The folder was never listed as a whole, so a name that is not known in it proves nothing.
class NotKnown : public std::runtime_error {
  public:
    NotKnown() : std::runtime_error("The folder has not been listed yet.") {}
};

/// No item of that number is known any more, or it is no folder where one is needed.
class NoSuchNode : public std::runtime_error {
  public:
    NoSuchNode() : std::runtime_error("There is no such item any more.") {}
};

/// When a question left. Taken from `Replica::ask` before the call is made.
struct Asked {
    std::int64_t at = 0;
};

/// A part of a folder's listing, in the order of positions.
struct Listing {
    struct Entry {
        Ino ino = 0;
        Position position = 0;
        Here here{};
    };
    std::vector<Entry> entries{};
    /// No entry comes behind these, and none is missing.
    bool isAll = false;
};

/// What became of facts that were learnt.
struct Learnt {
    std::vector<KernelNews> news{};
    /// Items that stand there as the facts say.
    std::size_t taken = 0;
};

/// What this machine keeps of the vark: the rules, each of them one transaction. It is asked and told from
/// any thread, and never waits for the network; an answer is as true as the database was when the call began.
///
/// An item is shown when it has a folder here (`Here::parent`). One that is known and not shown is *parked*
/// (another item has its name, its folder is not known, or its name cannot stand on a disk) or an *orphan*
/// (the vark no longer has it, or no longer these bytes, and somebody has it open).
///
/// What must hold:
/// - nothing goes but by `gone`: not by a list that lacks it, and not by an error;
/// - an answer does not override what was learnt after its question left. Where the two differ, the item
///   becomes stale, and is asked for again;
/// - a page is taken in as a whole or not at all.
///
/// Rules that change what is shown answer the news for the kernel; whoever called passes it on, after the
/// call. Everything may fail with `DatabaseError`.
class Replica {
  public:
    /// `root` is the vark's number of what is shown as the top; `now` the time of day. The store outlives the
    /// replica, and has no other.
    Replica(ReplicaStore& store, std::int64_t root, WallClock now = systemDate);
    Replica(const Replica&) = delete;
    Replica& operator=(const Replica&) = delete;

    /// The item of that name, byte for byte; nothing when there is none for certain. Fails with `NotKnown`
    /// and, when the folder has gone, `NoSuchNode`.
    std::optional<Record> lookup(Ino folder, std::string_view name);
    /// Nothing when it has gone.
    std::optional<Record> record(Ino ino);
    /// Up to `most` entries behind the position `after`; 0 begins. Fails with `NoSuchNode`.
    Listing list(Ino folder, Position after, std::size_t most);

    /// The moment at which a question to the vark leaves.
    Asked ask();
    /// Takes in items of a list, of the feed or of an answer. An item whose folder is not known is passed
    /// over; one that is shown and goes there is parked.
    Learnt learn(std::span<const VarkItem> items, Asked asked);
    /// A page of the feed: items, then what it says has gone, and the place in the feed behind it.
    Learnt learnFeed(std::span<const VarkItem> items, std::span<const std::int64_t> gone, std::string anchor,
                     Asked asked);
    /// What the vark has vouched for as gone, with all that is in it.
    Learnt gone(std::span<const std::int64_t> ids, Asked asked);
    /// All pages of the folder are in; the first was asked for at `asked`. What is known in it and was not
    /// confirmed since becomes stale. Fails with `NoSuchNode`.
    void markListed(Ino folder, Asked asked);

    /// Items that are to be asked for again, the oldest first.
    std::vector<Record> stale(std::size_t most);
    /// What is shown in the folder and not stale, by number and name alone.
    std::vector<VarkItem> confirmed(Ino folder);

    /// The place in the feed up to which everything is in; nothing in a new replica.
    std::optional<std::string> anchor();
    void setAnchor(std::string anchor);

    /// How much of that version's bytes is here. Answers whether that is the version that is shown.
    bool setHeld(Ino ino, std::int64_t content, Held held);

    /// Somebody holds the file open, once for each call. What is open keeps its bytes when the vark has
    /// others: they come under a new number, and the open one is an orphan.
    void opened(Ino ino);
    /// The other side of `opened`. The row of an orphan goes with its last one.
    void closed(Ino ino);

  private:
    template <class Rule>
    Learnt apply(Asked asked, Rule rule);
    bool isOpen(Ino ino);

    ReplicaStore& store_;
    const std::int64_t root_;
    const WallClock now_;
    std::atomic<std::int64_t> counter_ = 0;
    /// Never held while the store is asked for something.
    Mutex lock_;
    std::map<Ino, std::size_t> open_ VARK_GUARDED_BY(lock_);
};

}  // namespace vark
