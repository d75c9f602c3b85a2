#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "VarkCore/Foundation/Files.h"

namespace vark {

/// That one copy of the program at a time works on a person's queue. The lock in the storage folder decides;
/// where it cannot be opened, the list of processes does. Functions only; any thread.
struct SingleInstance {
    struct StandAside {
        std::string why;
        bool operator==(const StandAside&) const = default;
    };
    struct CarryOn {
        bool operator==(const CarryOn&) const = default;
    };
    using Verdict = std::variant<StandAside, CarryOn>;

    struct Seen {
        std::uint32_t euid = 0;
        /// The running copies of this program; this process may be among them.
        std::vector<std::int32_t> others;
        std::int32_t mine = 0;
        bool lockTaken = false;
    };
    static Verdict verdict(const Seen& seen);

    /// What came of reaching for the lock. A disk problem counts as taken, with nothing held: it must not
    /// keep the program from starting.
    struct Lock {
        bool isTaken = false;
        std::optional<FileLock> held;
    };
    /// Held for as long as the answer lives.
    static Lock reachForLock(const std::filesystem::path& path);
    /// Held for as long as the process lives.
    static bool takeLock(const std::filesystem::path& path);
};

}  // namespace vark
