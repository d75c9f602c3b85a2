#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VarkCore/Services/Dialer.h"

extern "C" {
struct ssl_ctx_st;
}

namespace vark {

/// TLS by OpenSSL on sockets of its own, on a few threads of its own, so that several connections encrypt at
/// the same time. Owned by the host, and ended when no connection is left. The five seconds of a dial are of
/// its task's clock, and cover the handshake too.
class TLSDialer final : public Dialer {
  public:
    /// Trusts, beside the system's roots, the certificates of one file. Fails with `std::runtime_error`, a
    /// sentence for people, when that cannot be used.
    explicit TLSDialer(const std::optional<std::string>& authorityFile = std::nullopt);
    ~TLSDialer() override;

    Task<std::unique_ptr<TLSConnection>> dial(DialTarget target) override;

  private:
    class Lane;
    class Connection;
    struct Free {
        void operator()(ssl_ctx_st* context) const noexcept;
    };

    Lane& idlestLane() const;

    std::unique_ptr<ssl_ctx_st, Free> context_;
    std::vector<std::unique_ptr<Lane>> lanes_;
};

}  // namespace vark
