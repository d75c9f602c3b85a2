#include "VarkCore/Upload/FileHasher.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <new>
#include <stdexcept>

namespace vark {
namespace {

constexpr std::size_t pieceBytes = 1'048'576;

void check(int result) {
    if (result != 1) throw std::runtime_error("SHA-256 is not to be had from this system's OpenSSL.");
}

}  // namespace

RunningHash::RunningHash() : context_(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
    if (!context_) throw std::bad_alloc();
    check(EVP_DigestInit_ex2(context_.get(), EVP_sha256(), nullptr));
}

void RunningHash::add(std::span<const char> bytes) {
    check(EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()));
}

std::string RunningHash::hexadecimal() {
    constexpr const char* digits = "0123456789abcdef";
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
    unsigned length = 0;
    check(EVP_DigestFinal_ex(context_.get(), hash.data(), &length));
    std::string text;
    text.reserve(std::size_t{length} * 2);
    for (const unsigned char byte : std::span(hash).first(length)) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::string FileHasher::sha256(std::string_view data) {
    RunningHash digest;
    digest.add(data);
    return digest.hexadecimal();
}

std::string FileHasher::sha256Of(const std::filesystem::path& path, const Progress& progress) {
    return sha256Of(openForReading(path), path, progress);
}

std::string FileHasher::sha256Of(const Descriptor& file, const std::filesystem::path& path,
                                 const Progress& progress) {
    posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    const auto piece = std::make_unique_for_overwrite<char[]>(pieceBytes);
    RunningHash digest;
    std::int64_t total = 0;
    for (;;) {
        const ssize_t length = pread(file.get(), piece.get(), pieceBytes, total);
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) throw FileError("Could not read", path, errno);
        if (length == 0) return digest.hexadecimal();
        digest.add({piece.get(), static_cast<std::size_t>(length)});
        total += length;
        if (progress && !progress(total)) throw Cancelled();
    }
}

}  // namespace vark
