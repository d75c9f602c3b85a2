#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>

namespace vark {

/// The number of an item on this machine, which programs see as its inode number. None is ever used twice.
using Ino = std::int64_t;
/// The top of what is shown.
inline constexpr Ino rootIno = 1;

/// Where an item stands in the listing of its folder: above 1, and different for each that is shown there. It
/// stays as long as the item's name is its own, whatever comes and goes around it.
using Position = std::int64_t;

/// The values of the enumerations are those in the database.
enum class Kind { file = 0, folder = 1, link = 2 };

/// How much of an item's content lies here. `changed` is content that the vark does not have.
enum class Held { nothing = 0, partly = 1, whole = 2, changed = 3 };

/// What the vark is still to be told, as bits.
enum class Owed : std::int64_t { nothing = 0, made = 1, content = 2, place = 4, binned = 8 };

/// What this machine shows of an item.
struct Here {
    /// Nothing for an item that is not shown: see `Replica`.
    std::optional<Ino> parent{};
    std::string name{};
    Kind kind = Kind::file;
    /// Bytes; 0 for a folder.
    std::int64_t size = 0;
    /// Nanoseconds since 1970.
    std::int64_t mtime = 0;
    /// The permission bits alone.
    mode_t mode = 0;
    /// Where a link leads.
    std::string target{};

    bool operator==(const Here&) const = default;
};

/// What the vark was last known to have.
struct There {
    std::int64_t id = 0;
    std::optional<std::int64_t> parent{};
    std::string name{};
    std::int64_t size = 0;
    /// Seconds since 1970.
    std::optional<double> mtime{};
    /// Lower-case hexadecimal; empty when the vark did not say.
    std::string sha256{};

    bool operator==(const There&) const = default;
};

/// Both sides of one item. A value: it may be out of date the moment after.
struct Record {
    Ino ino = 0;
    Position position = 0;
    Here here{};
    /// Nothing when the vark does not have it.
    std::optional<There> there{};
    Owed owed = Owed::nothing;
    /// Goes up by one with each version of the content, so that bytes of an old one are never taken for those
    /// of a new one.
    std::int64_t content = 0;
    Held held = Held::nothing;
    /// There is news that could not be taken in: the vark is asked for the item again.
    bool stale = false;
    /// Of a folder: when all that it holds had come in; nothing before that.
    std::optional<std::int64_t> listed{};
    /// When the vark was last heard of it, in the counter's count.
    std::int64_t learnt = 0;

    bool isFolder() const { return here.kind == Kind::folder; }
    bool operator==(const Record&) const = default;
};

}  // namespace vark
