#pragma once

#include <memory>
#include <optional>
#include <string>

extern "C" {
struct x509_store_st;
struct ssl_ctx_st;
}

namespace vark {

/// The authorities that a TLS connection is judged by: the system's own, and beside them those of one file.
/// Made once and shared by all connections, since reading the authorities anew takes longer than a handshake.
/// Any thread.
class TrustStore {
  public:
    /// Fails with `std::runtime_error` when the file is not there or holds no certificate.
    explicit TrustStore(const std::optional<std::string>& authorityFile);

    /// Lets the connections of `context` be judged by this store, which then may go before they do.
    void applyTo(ssl_ctx_st* context) const;

  private:
    struct Free {
        void operator()(x509_store_st* store) const noexcept;
    };
    std::unique_ptr<x509_store_st, Free> store_;
};

}  // namespace vark
