#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {

/// What the client tells the vark of its own health. Whoever fills it leaves tokens out.
struct DiagnosticsReport {
    struct Snapshot {
        /// From the name of a permission to its state.
        std::map<std::string, std::string> permissions{};
        std::int64_t queued = 0;
        std::int64_t problems = 0;
        std::vector<std::string> problemReasons{};
        std::int64_t waiting = 0;
        std::string finder{};
        /// Left out when not known.
        std::optional<std::int64_t> freeBytes{};
        std::int64_t lanNodes = 0;
        std::string updater{};

        bool operator==(const Snapshot&) const = default;
    };

    std::string appVersion{};
    std::string osVersion{};
    /// From the name of a log to what is new in it.
    std::map<std::string, std::string> logs{};
    Snapshot snapshot{};

    void encode(JSONWriter& json) const;
    bool operator==(const DiagnosticsReport&) const = default;
};

}  // namespace vark
