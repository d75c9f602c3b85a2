#include "VarkPlatform/Linux/TrustStore.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <new>
#include <stdexcept>

namespace vark {

TrustStore::TrustStore(const std::optional<std::string>& authorityFile) : store_(X509_STORE_new()) {
    if (!store_) throw std::bad_alloc();
    // The system's folder of authorities is only asked for the one that is needed, when it is needed.
    X509_STORE_set_default_paths(store_.get());
    // What is trusted by name is trusted as it stands, be it an authority or the certificate of one server.
    X509_STORE_set_flags(store_.get(), X509_V_FLAG_PARTIAL_CHAIN);
    const bool loaded = !authorityFile || X509_STORE_load_file(store_.get(), authorityFile->c_str()) == 1;
    // A system without a folder of its own leaves a note of that behind too.
    ERR_clear_error();
    if (loaded) return;
    throw std::runtime_error("The certificates in “" + *authorityFile +
                             "” could not be read. Give a file with certificates in PEM form.");
}

void TrustStore::applyTo(ssl_ctx_st* context) const {
    SSL_CTX_set1_cert_store(context, store_.get());
}

void TrustStore::Free::operator()(x509_store_st* store) const noexcept {
    X509_STORE_free(store);
}

}  // namespace vark
