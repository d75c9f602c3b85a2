#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vark {

/// What a secret is filed under.
struct SecretName {
    std::string service;
    std::string account;

    auto operator<=>(const SecretName&) const = default;
};

/// How an operation of a secret store ended. The numbers stand in sentences and in logs.
struct SecretStatus {
    static constexpr std::int32_t done = 0;
    static constexpr std::int32_t notFound = -25300;
    /// What was found is no text.
    static constexpr std::int32_t notText = -26275;
    /// There is no store on this machine.
    static constexpr std::int32_t absent = -25291;
    /// There is one, but it shows nothing that secrets could lie in.
    static constexpr std::int32_t noKeyring = -25307;
    static constexpr std::int32_t locked = -25308;
    /// The person said no, or could not be asked.
    static constexpr std::int32_t refused = -128;
    static constexpr std::int32_t noAnswer = -1712;
    /// Nothing may be written there, or there is no room.
    static constexpr std::int32_t readOnly = -61;
    static constexpr std::int32_t full = -34;
    static constexpr std::int32_t failed = -36;
};

/// Where the system keeps secrets. Owned by the host; any thread may call, and its calls block: for a moment,
/// except `open`, which waits for the person. Nothing here throws, and only `notFound` says that a secret is
/// not there.
class SecretStore {
  public:
    struct Answer {
        std::int32_t status = SecretStatus::done;
        std::string bytes{};
    };

    virtual ~SecretStore() = default;

    /// Makes the store ready to be written to. The one call that may ask the person something.
    virtual std::int32_t open() = 0;
    virtual Answer find(const SecretName& name) = 0;
    /// Changes the bytes in place; all else about the secret stays.
    virtual std::int32_t update(const SecretName& name, std::string_view bytes) = 0;
    virtual std::int32_t add(const SecretName& name, std::string_view label, std::string_view bytes) = 0;
    virtual std::int32_t remove(const SecretName& name) = 0;
    /// A finished sentence for a status; nothing when the store has none.
    virtual std::optional<std::string> message(std::int32_t status) const = 0;
};

}  // namespace vark
