#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "VarkCore/Connection/SharedStore.h"
#include "VarkCore/Foundation/Time/Date.h"

namespace vark {

/// The last good place in the vark's change feed for every folder of every connection, so that this machine
/// can always say where it stood. An anchor is a cursor of the vark, or it is pending: "pending" alone, or
/// with the second since 1970 at which there was no place. A pending anchor stands for an answer not yet had
/// and is never stored, so that it cannot be taken for a place. Functions only; any thread. Nothing here
/// fails: what cannot be read is no value, and what cannot be written leaves the old one.
struct LastAnchor {
    using Folder = SharedStore::Folder;

    static constexpr std::string_view pending = "pending";

    /// What the place of one folder of one connection is kept under.
    static std::string key(std::string_view server, std::int64_t rootID, std::int64_t container);
    static bool isPending(const std::optional<std::string>& anchor);

    /// Does nothing for an anchor that is empty or pending.
    static void keep(std::string_view anchor, const std::string& key, const Folder& folder);
    static std::optional<std::string> last(const std::string& key, const Folder& folder);
    /// The anchor to be told onwards: what the vark said, which is kept, or else the last place, so that its
    /// silence never moves this machine back to the start of the feed. Never empty.
    static std::string answer(const std::optional<std::string>& varkSaid, const std::string& key,
                              const Folder& folder, Date now = systemDate());
    static std::string pendingNow(Date now);
    /// The place in the feed at the time of a pending anchor, and so many seconds before it.
    static std::string startFor(std::string_view anchor, double lookingBack, Date now);
    static void forgetAll(const Folder& folder);
};

}  // namespace vark
