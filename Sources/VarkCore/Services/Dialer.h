#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "VarkCore/Concurrency/Task.h"

namespace vark {

/// Where to connect, and who must answer there.
struct DialTarget {
    /// A numeric address.
    std::string ip;
    std::uint16_t port = 0;
    /// Sent as the server's name, and what the certificate must be for.
    std::string host;
};

/// Why a connection was not made, or broke. `what()` is the system's own description.
class DialError : public std::exception {
  public:
    enum Kind {
        network,
        /// Any failure of TLS: the chain, the name, the protocol.
        tls,
    };
    DialError(Kind kind, std::string description) : kind_(kind), description_(std::move(description)) {}
    Kind kind() const { return kind_; }
    const char* what() const noexcept override { return description_.c_str(); }

  private:
    Kind kind_;
    std::string description_;
};

/// One TLS connection, used by one task, with one call under way at a time. Ends when it is destroyed,
/// without a farewell. A call whose task is cancelled ends at once with `CancellationError`; every other
/// failure is a `DialError`. No thread is blocked by a far side that is slow.
class TLSConnection {
  public:
    struct Received {
        std::size_t count = 0;
        /// Whether the far side has ended its stream, in whatever way it does that.
        bool finished = false;
    };

    virtual ~TLSConnection() = default;

    /// Returns when all of the bytes are handed over. They stay where they are until then.
    virtual Task<void> send(std::span<const char> bytes) = 0;
    /// Waits for at least one byte or the end, and gives at most as much as `into` holds.
    virtual Task<Received> receive(std::span<char> into) = 0;

    /// The short way, on the thread of whoever calls and without waiting: `trySend` hands over what goes at
    /// once, takes it off `bytes` and answers whether that was all; if not, `send` does the rest, though
    /// `bytes` may be empty by then. `tryReceive` gives what is there, if anything is.
    virtual bool trySend(std::span<const char>& bytes) { return bytes.empty(); }
    virtual std::optional<Received> tryReceive(std::span<char>) { return std::nullopt; }
};

/// Connects to an address and checks that the machine there may call itself by another name. Outlives its
/// connections; any thread may call.
class Dialer {
  public:
    virtual ~Dialer() = default;

    /// A connection over which TLS stands: the certificate chains to a root that the system trusts and is for
    /// `host`. What does not connect within 5 seconds, or not at the first try, fails.
    virtual Task<std::unique_ptr<TLSConnection>> dial(DialTarget target) = 0;
};

}  // namespace vark
