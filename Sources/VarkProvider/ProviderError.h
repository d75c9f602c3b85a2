#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>

namespace vark {

/// A failure as a system understands it, in its own numbers. A value.
struct ProviderError {
    enum class Domain : std::uint8_t {
        cocoa,
        fileProvider,
        /// The code is an errno.
        posix,
        other,
    };

    static constexpr int userCancelled = 3072;
    static constexpr int notAuthenticated = -1000;
    static constexpr int insufficientQuota = -1003;
    static constexpr int serverUnreachable = -1004;
    static constexpr int noSuchItem = -1005;
    static constexpr int cannotSynchronize = -2005;

    Domain domain = Domain::other;
    int code = 0;
    /// A finished sentence for the person.
    std::optional<std::string> description{};
    /// The failure itself, where it is none of the vark's and passes through unchanged.
    std::exception_ptr unchanged{};

    /// The change feed cannot go on from the place that it was asked to. It says that the vark is out of
    /// reach for now, and never that the place has run out: a system that hears that throws its place away
    /// and lists everything anew.
    static ProviderError refusedPlace() { return {Domain::fileProvider, serverUnreachable}; }
    bool isRefusedPlace() const { return *this == refusedPlace(); }
    bool isCancellation() const { return domain == Domain::cocoa && code == userCancelled; }

    bool operator==(const ProviderError&) const = default;
};

/// Every failure goes through here on its way to a system. A taken name is `cannotSynchronize`, since a
/// system that is told of a collision would rename the person's file by itself; a 403 is `notAuthenticated`.
ProviderError providerError(const std::exception_ptr& failure);

}  // namespace vark
