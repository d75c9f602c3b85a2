#pragma once

#include <boost/json/value.hpp>
#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {

/// What a sign-in that succeeded yields.
struct DeviceClaim {
    std::string token{};
    std::string clientName{};
    std::string email{};

    static DeviceClaim fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;
    bool operator==(const DeviceClaim&) const = default;
};

/// A sign-in in the browser that has begun.
struct DeviceBegin {
    /// Names this sign-in in the polls.
    std::string nonce{};
    /// The address to open.
    std::string url{};
    /// Seconds until the vark forgets it.
    double expiresIn = 0;

    static DeviceBegin fromJSON(const boost::json::value& value);
    bool operator==(const DeviceBegin&) const = default;
};

/// The answer to one poll of a sign-in in the browser.
class DevicePoll {
  public:
    /// The person agreed.
    struct Connected {
        DeviceClaim claim{};
        std::optional<std::string> deviceName{};
        bool operator==(const Connected&) const = default;
    };
    struct Pending {
        bool operator==(const Pending&) const = default;
    };
    /// The person said no.
    struct Refused {
        bool operator==(const Refused&) const = default;
    };
    struct Expired {
        bool operator==(const Expired&) const = default;
    };
    /// The vark wants fewer polls.
    struct SlowDown {
        bool operator==(const SlowDown&) const = default;
    };
    /// The network failed this time.
    struct Unreachable {
        bool operator==(const Unreachable&) const = default;
    };
    using Case = std::variant<Connected, Pending, Refused, Expired, SlowDown, Unreachable>;

    template <class T>
        requires std::constructible_from<Case, T>
    DevicePoll(T which) : case_(std::move(which)) {}
    /// Reads the body of a 200. Fails with `VarkAPIError`.
    static DevicePoll from(std::string_view body);

    const Case& which() const { return case_; }
    bool operator==(const DevicePoll&) const = default;

  private:
    Case case_;
};

}  // namespace vark
