#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "VarkCore/Connection/SharedStore.h"
#include "VarkCore/Foundation/Time/Date.h"

namespace vark {

/// The numbers by which a vark says what a person may do there.
struct VarkLevel {
    /// From here on a person may change things; below they only read.
    static constexpr std::int64_t lowestThatWrites = 4;
    static constexpr bool writes(std::int64_t level) { return level >= lowestThatWrites; }
};

/// What this device may do on the vark, as it was last learned. A value.
struct SharedLevel {
    std::int64_t level = 0;
    bool jobNumbers = false;
    /// When this was learned.
    Date at{};

    bool operator==(const SharedLevel&) const = default;

    static SharedLevel fromJSON(const boost::json::value& value);
    std::string toJSON() const;

    /// Whether it is young enough to be believed. One from the future is not: the clock was set back.
    bool isFresh(Date now) const;
};

/// The last level in the folder that our processes share, written by whoever asks the vark who it is talking
/// to. Functions only; any thread. Nothing here fails, as in `SharedStore`.
struct SharedLevelStore {
    static std::optional<SharedLevel> read(const SharedStore::Folder& folder);
    static bool write(const SharedLevel& level, const SharedStore::Folder& folder);
    static void clear(const SharedStore::Folder& folder);
};

}  // namespace vark
