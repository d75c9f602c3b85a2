#pragma once

#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace vark::test {

template <auto free>
struct OpenSSLFree {
    template <class T>
    void operator()(T* object) const noexcept {
        free(object);
    }
};
using ServerContext = std::unique_ptr<SSL_CTX, OpenSSLFree<SSL_CTX_free>>;

/// An authority for TLS that nobody knows but the test. Its certificate stands in a file that goes with it.
class TestAuthority {
  public:
    TestAuthority();
    ~TestAuthority();
    TestAuthority(const TestAuthority&) = delete;
    TestAuthority& operator=(const TestAuthority&) = delete;

    const std::string& file() const { return file_; }
    enum class Validity { now, past };
    /// What a server needs to prove that it is one of `names`: host names or numeric addresses.
    ServerContext serverContext(const std::vector<std::string>& names,
                                Validity validity = Validity::now) const;

  private:
    using Key = std::unique_ptr<EVP_PKEY, OpenSSLFree<EVP_PKEY_free>>;
    using Certificate = std::unique_ptr<X509, OpenSSLFree<X509_free>>;

    Certificate issue(EVP_PKEY* key, const std::string& commonName, const std::vector<std::string>& names,
                      Validity validity = Validity::now) const;

    Key key_;
    Certificate certificate_;
    std::string file_;
};

}  // namespace vark::test
