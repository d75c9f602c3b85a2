#include "VarkCore/Upload/FileHasher.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <new>
#include <span>
#include <stdexcept>

#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

constexpr std::size_t pieceBytes = 1'048'576;

class Digest {
  public:
    Digest() : context_(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
        if (!context_) throw std::bad_alloc();
        check(EVP_DigestInit_ex2(context_.get(), EVP_sha256(), nullptr));
    }

    void add(std::span<const char> bytes) {
        check(EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()));
    }

    std::string hexadecimal() {
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

  private:
    static void check(int result) {
        if (result != 1) throw std::runtime_error("This system cannot compute SHA-256.");
    }

    std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context_;
};

}  // namespace

std::string FileHasher::sha256(std::string_view data) {
    Digest digest;
    digest.add(data);
    return digest.hexadecimal();
}

std::string FileHasher::sha256Of(const std::filesystem::path& path, const Progress& progress) {
    const Descriptor file = openForReading(path);
    posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    const auto piece = std::make_unique_for_overwrite<char[]>(pieceBytes);
    Digest digest;
    std::int64_t total = 0;
    for (;;) {
        const ssize_t length = read(file.get(), piece.get(), pieceBytes);
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) throw FileError("Could not read", path, errno);
        if (length == 0) return digest.hexadecimal();
        digest.add({piece.get(), static_cast<std::size_t>(length)});
        total += length;
        if (progress && !progress(total)) throw Cancelled();
    }
}

}  // namespace vark
