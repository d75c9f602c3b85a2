#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include "VarkCore/Connection/Keychain.h"

namespace vark {

/// Why the application looks at the vark's place in the file browser.
enum class SyncReason : std::uint8_t {
    launch,
    refresh,
    connected,
    switched,
    signedOutByVark,
    accessRevoked,
    disconnectedByPerson,
    quitting,
};

/// The stored name, "launch".
std::string_view text(SyncReason reason);

/// What is to become of that place. A value.
class MountPlan {
  public:
    /// Nothing is done; `why` is for the diary.
    struct LeaveAlone {
        std::string why;
        bool operator==(const LeaveAlone&) const = default;
    };
    /// Marked as disconnected and kept in its place.
    struct Disconnect {
        std::string why;
        bool operator==(const Disconnect&) const = default;
    };
    struct Bring {
        bool operator==(const Bring&) const = default;
    };
    struct TakeAway {
        bool operator==(const TakeAway&) const = default;
    };
    using Case = std::variant<LeaveAlone, Disconnect, Bring, TakeAway>;

    explicit MountPlan(Case which) : case_(std::move(which)) {}
    const Case& which() const { return case_; }
    bool operator==(const MountPlan&) const = default;

  private:
    Case case_;
};

/// Whether the vark belongs among a person's disks. Trouble with the token that may pass never takes the
/// person's files away: only a clear answer does. Pure.
struct MountDecision {
    struct Situation {
        SyncReason reason = SyncReason::launch;
        /// The person wants it there.
        bool finderOn = false;
        Keychain::TokenRead token = Keychain::TokenRead::Missing{};
        /// There is a record of a connection.
        bool stored = false;
    };

    static MountPlan plan(const Situation& situation);
};

}  // namespace vark
