#include "VarkBox/HTTP/Authority.h"

#include <fmt/format.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "VarkCore/Foundation/Files.h"

namespace vark::box {

namespace fs = std::filesystem;

namespace {

constexpr long day = 24L * 3600;
constexpr long authorityLifetime = 3650 * day;
// Some clients refuse a server's certificate that is good for longer.
constexpr long serverLifetime = 397 * day;
constexpr long renewedBefore = 30 * day;

struct Free {
    void operator()(BIO* bio) const { BIO_free_all(bio); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
    void operator()(BIGNUM* number) const { BN_free(number); }
};
using Bio = std::unique_ptr<BIO, Free>;
using Key = std::unique_ptr<EVP_PKEY, Free>;
using Certificate = std::unique_ptr<X509, Free>;

template <class T>
T required(T value) {
    if (!value) throw std::runtime_error("OpenSSL could not make the certificates of the box.");
    return value;
}

struct Identity {
    Key key;
    Certificate certificate;
};

std::string text(BIO* bio) {
    char* bytes = nullptr;
    long length = BIO_get_mem_data(bio, &bytes);
    return {bytes, static_cast<std::size_t>(length)};
}

void writeKey(const fs::path& path, EVP_PKEY* key) {
    Bio bio(required(BIO_new(BIO_s_mem())));
    required(PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr));
    writeAtomically(path, text(bio.get()), 0600, Durability::cached);
}

void writeCertificate(const fs::path& path, X509* certificate) {
    Bio bio(required(BIO_new(BIO_s_mem())));
    required(PEM_write_bio_X509(bio.get(), certificate));
    writeAtomically(path, text(bio.get()), 0644, Durability::cached);
}

Bio readBio(const fs::path& path) {
    std::string bytes = readWholeFile(path);
    Bio bio(required(BIO_new(BIO_s_mem())));
    required(BIO_write(bio.get(), bytes.data(), static_cast<int>(bytes.size())) ==
             static_cast<int>(bytes.size()));
    return bio;
}

/// An identity with an empty half where a file is missing or cannot be read as what it should be.
Identity read(const fs::path& certificatePath, const fs::path& keyPath) {
    Identity identity;
    if (!fs::exists(certificatePath) || !fs::exists(keyPath)) return identity;
    identity.certificate.reset(PEM_read_bio_X509(readBio(certificatePath).get(), nullptr, nullptr, nullptr));
    identity.key.reset(PEM_read_bio_PrivateKey(readBio(keyPath).get(), nullptr, nullptr, nullptr));
    return identity;
}

bool isGood(const Identity& identity, X509* issuer, EVP_PKEY* issuerKey) {
    if (!identity.certificate || !identity.key) return false;
    if (X509_check_private_key(identity.certificate.get(), identity.key.get()) != 1) return false;
    if (X509_check_issued(issuer, identity.certificate.get()) != X509_V_OK) return false;
    if (X509_verify(identity.certificate.get(), issuerKey) != 1) return false;
    time_t soon = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()) + renewedBefore;
    return X509_cmp_time(X509_get0_notAfter(identity.certificate.get()), &soon) > 0;
}

bool speaksFor(X509* certificate, const std::vector<std::string>& hosts) {
    return std::ranges::all_of(hosts, [certificate](const std::string& host) {
        return X509_check_host(certificate, host.data(), host.size(), 0, nullptr) == 1;
    });
}

void addExtension(X509* certificate, X509* issuer, int kind, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    std::unique_ptr<X509_EXTENSION, Free> extension(
        required(X509V3_EXT_conf_nid(nullptr, &context, kind, value)));
    required(X509_add_ext(certificate, extension.get(), -1));
}

void setSerial(X509* certificate) {
    std::unique_ptr<BIGNUM, Free> number(required(BN_new()));
    required(BN_rand(number.get(), 127, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY));
    required(BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)));
}

/// A new certificate for a new key, with the parts that both kinds share; not yet signed.
Identity blank(const char* name, long lifetime) {
    Identity identity{Key(required(EVP_EC_gen("P-256"))), Certificate(required(X509_new()))};
    X509* certificate = identity.certificate.get();
    required(X509_set_version(certificate, X509_VERSION_3));
    setSerial(certificate);
    required(X509_gmtime_adj(X509_getm_notBefore(certificate), -day));
    required(X509_gmtime_adj(X509_getm_notAfter(certificate), lifetime));
    required(X509_set_pubkey(certificate, identity.key.get()));
    auto* bytes = reinterpret_cast<const unsigned char*>(name);
    required(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8, bytes, -1,
                                        -1, 0));
    return identity;
}

Identity newAuthority() {
    Identity authority = blank("Vark development box", authorityLifetime);
    X509* certificate = authority.certificate.get();
    required(X509_set_issuer_name(certificate, X509_get_subject_name(certificate)));
    addExtension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
    addExtension(certificate, certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
    addExtension(certificate, certificate, NID_subject_key_identifier, "hash");
    required(X509_sign(certificate, authority.key.get(), EVP_sha256()));
    return authority;
}

Identity newServer(const Identity& authority, const std::vector<std::string>& hosts) {
    Identity server = blank("localhost", serverLifetime);
    X509* certificate = server.certificate.get();
    X509* issuer = authority.certificate.get();
    required(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)));
    addExtension(certificate, issuer, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(certificate, issuer, NID_key_usage, "critical,digitalSignature");
    addExtension(certificate, issuer, NID_ext_key_usage, "serverAuth");
    std::string names = "DNS:localhost,IP:127.0.0.1,IP:::1";
    for (const std::string& host : hosts)
        names += fmt::format(",DNS:{}", host);
    addExtension(certificate, issuer, NID_subject_alt_name, names.c_str());
    addExtension(certificate, issuer, NID_authority_key_identifier, "keyid:always");
    required(X509_sign(certificate, authority.key.get(), EVP_sha256()));
    return server;
}

/// The key first: a certificate without its key would be of no use after a crash in between.
void keep(const Identity& identity, const fs::path& certificatePath, const fs::path& keyPath) {
    writeKey(keyPath, identity.key.get());
    writeCertificate(certificatePath, identity.certificate.get());
}

}  // namespace

CertificateFiles certificatesIn(const fs::path& folder, const fs::path& authorityFolder,
                                const std::vector<std::string>& hosts) {
    CertificateFiles files{.authority = authorityFolder / "authority.pem",
                           .certificate = folder / "server.pem",
                           .privateKey = folder / "server-key.pem"};
    fs::path authorityKey = authorityFolder / "authority-key.pem";
    Identity authority = read(files.authority, authorityKey);
    if (!isGood(authority, authority.certificate.get(), authority.key.get())) {
        authority = newAuthority();
        keep(authority, files.authority, authorityKey);
    }
    Identity server = read(files.certificate, files.privateKey);
    if (!isGood(server, authority.certificate.get(), authority.key.get()) ||
        !speaksFor(server.certificate.get(), hosts)) {
        server = newServer(authority, hosts);
        keep(server, files.certificate, files.privateKey);
    }
    return files;
}

}  // namespace vark::box
