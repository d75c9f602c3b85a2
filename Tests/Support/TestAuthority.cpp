#include "Tests/Support/TestAuthority.h"

#include <arpa/inet.h>
#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <stdexcept>

namespace vark::test {
namespace {

void require(bool ok) {
    if (ok) return;
    throw std::runtime_error(std::string("OpenSSL: ") + ERR_reason_error_string(ERR_get_error()));
}

void addExtension(X509* certificate, int which, const std::string& value) {
    const std::unique_ptr<X509_EXTENSION, OpenSSLFree<X509_EXTENSION_free>> extension(
        X509V3_EXT_conf_nid(nullptr, nullptr, which, value.c_str()));
    require(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
}

std::string alternativeNames(const std::vector<std::string>& names) {
    std::string list;
    for (const std::string& name : names) {
        in6_addr address{};
        const bool isNumeric = inet_pton(AF_INET, name.c_str(), &address) == 1 ||
                               inet_pton(AF_INET6, name.c_str(), &address) == 1;
        if (!list.empty()) list += ',';
        list += (isNumeric ? "IP:" : "DNS:") + name;
    }
    return list;
}

}  // namespace

TestAuthority::TestAuthority() : key_(EVP_EC_gen("P-256")) {
    require(key_ != nullptr);
    // A name of its own: two authorities of one name would be told apart by their signatures only.
    file_ = (std::filesystem::temp_directory_path() / "vark-authority-XXXXXX").string();
    const int descriptor = mkstemp(file_.data());
    require(descriptor >= 0);
    certificate_ = issue(key_.get(), file_, {});
    const std::unique_ptr<BIO, OpenSSLFree<BIO_free_all>> file(BIO_new_fd(descriptor, BIO_CLOSE));
    require(PEM_write_bio_X509(file.get(), certificate_.get()) == 1);
}

TestAuthority::~TestAuthority() {
    unlink(file_.c_str());
}

ServerContext TestAuthority::serverContext(const std::vector<std::string>& names, Validity validity) const {
    const Key key(EVP_EC_gen("P-256"));
    require(key != nullptr);
    const Certificate certificate = issue(key.get(), "Server of the tests", names, validity);
    ServerContext context(SSL_CTX_new(TLS_server_method()));
    require(context && SSL_CTX_use_certificate(context.get(), certificate.get()) == 1 &&
            SSL_CTX_use_PrivateKey(context.get(), key.get()) == 1);
    return context;
}

/// Without names it is the authority's own.
TestAuthority::Certificate TestAuthority::issue(EVP_PKEY* key, const std::string& commonName,
                                                const std::vector<std::string>& names,
                                                Validity validity) const {
    Certificate certificate(X509_new());
    require(certificate != nullptr);
    X509_set_version(certificate.get(), X509_VERSION_3);
    std::uint64_t serial = 0;
    RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial);
    ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate.get()), serial >> 1);
    constexpr long hour = 3600;
    const long end = validity == Validity::now ? 24 * hour : -hour;
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), end - 25 * hour);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), end);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1, 0);
    X509_set_issuer_name(certificate.get(),
                         X509_get_subject_name(certificate_ ? certificate_.get() : certificate.get()));
    X509_set_pubkey(certificate.get(), key);
    addExtension(certificate.get(), NID_basic_constraints, names.empty() ? "critical,CA:TRUE" : "CA:FALSE");
    if (!names.empty()) addExtension(certificate.get(), NID_subject_alt_name, alternativeNames(names));
    require(X509_sign(certificate.get(), key_.get(), EVP_sha256()) > 0);
    return certificate;
}

}  // namespace vark::test
