#include "VarkBox/Store/Hasher.h"

#include <fmt/format.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <array>
#include <iterator>
#include <span>
#include <stdexcept>
#include <vector>

namespace vark::box {

namespace {

std::string hex(std::span<const unsigned char> bytes) {
    std::string text;
    text.reserve(bytes.size() * 2);
    for (unsigned char byte : bytes)
        fmt::format_to(std::back_inserter(text), "{:02x}", byte);
    return text;
}

void require(bool good) {
    if (!good) throw std::runtime_error("OpenSSL could not hash.");
}

}  // namespace

void Hasher::Free::operator()(evp_md_ctx_st* context) const {
    EVP_MD_CTX_free(context);
}

Hasher::Hasher() : context_(EVP_MD_CTX_new()) {
    require(context_ != nullptr && EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) == 1);
}

void Hasher::add(std::string_view bytes) {
    require(EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) == 1);
}

std::string Hasher::digest() {
    std::array<unsigned char, 32> digest{};
    require(EVP_DigestFinal_ex(context_.get(), digest.data(), nullptr) == 1);
    return hex(digest);
}

std::string randomHex(std::size_t bytes) {
    std::vector<unsigned char> random(bytes);
    if (RAND_bytes(random.data(), static_cast<int>(bytes)) != 1) {
        throw std::runtime_error("OpenSSL has no random numbers.");
    }
    return hex(random);
}

}  // namespace vark::box
