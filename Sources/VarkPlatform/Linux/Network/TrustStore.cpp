#include "VarkPlatform/Linux/Network/TrustStore.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <stdexcept>

namespace vark {
namespace {

/// Whether each authority of the system can be found in the folder by the hash of its name. One to which
/// somebody has only added a few of his own does not count.
bool isHashed(const std::filesystem::path& folder) {
    constexpr std::ptrdiff_t fewestOfASystem = 32;
    std::error_code unreadable;
    const std::filesystem::directory_iterator entries(folder, unreadable);
    return std::ranges::count_if(entries, [](const auto& entry) {
               return entry.path().extension() == ".0";
           }) >= fewestOfASystem;
}

void addAuthoritiesOfTheSystem(X509_STORE* store) {
    // The system's one file of all authorities takes 50 ms to read; a hashed folder is asked for the one that
    // is needed.
    const char* ownFolder = std::getenv(X509_get_default_cert_dir_env());
    const char* folder = ownFolder != nullptr ? ownFolder : X509_get_default_cert_dir();
    if (std::getenv(X509_get_default_cert_file_env()) == nullptr && isHashed(folder)) {
        X509_STORE_load_path(store, folder);
    } else {
        X509_STORE_set_default_paths(store);
    }
}

}  // namespace

TrustStore::TrustStore(const std::optional<std::string>& authorityFile) : store_(X509_STORE_new()) {
    if (!store_) throw std::bad_alloc();
    addAuthoritiesOfTheSystem(store_.get());
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
