#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <optional>
#include <string>

namespace vark {

/// Who this device is to the vark, and what it may do there.
struct WhoAmI {
    std::string email{};
    std::string client{};
    std::int64_t level = 0;
    std::string levelLabel{};
    std::string deviceName{};
    bool jobNumbers = false;
    /// In bytes.
    std::optional<std::int64_t> spaceUsed{};
    std::optional<std::int64_t> spacePlan{};

    static WhoAmI fromJSON(const boost::json::value& value);
    bool operator==(const WhoAmI&) const = default;
};

}  // namespace vark
