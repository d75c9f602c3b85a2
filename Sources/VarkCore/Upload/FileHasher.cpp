#include "VarkCore/Upload/FileHasher.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>

namespace vark {
namespace {

constexpr std::int64_t pieceBytes = 1'048'576;
constexpr int mostLooks = 3;

void check(int result) {
    if (result != 1) throw std::runtime_error("This system cannot compute SHA-256.");
}

/// One file that is open, read from its beginning.
class Reader {
  public:
    Reader(const Descriptor& file, const std::filesystem::path& path) : path_(path), file_(file) {
        posix_fadvise(file_.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    }

    /// Of what comes up to the end of the file or of `limit`.
    std::string hash(std::int64_t limit, const FileHasher::Progress& progress) {
        const auto piece = std::make_unique_for_overwrite<char[]>(pieceBytes);
        RunningHash digest;
        while (total_ < limit) {
            const auto wanted = static_cast<std::size_t>(std::min(pieceBytes, limit - total_));
            const ssize_t length = pread(file_.get(), piece.get(), wanted, total_);
            if (length < 0 && errno == EINTR) continue;
            if (length < 0) throw FileError("Could not read", path_, errno);
            if (length == 0) break;
            digest.add({piece.get(), static_cast<std::size_t>(length)});
            total_ += length;
            if (progress && !progress(total_)) throw FileHasher::Cancelled();
        }
        return digest.hexadecimal();
    }
    std::int64_t total() const { return total_; }
    FileStamp stamp() const { return stampOf(file_, path_); }

  private:
    const std::filesystem::path& path_;
    const Descriptor& file_;
    std::int64_t total_ = 0;
};

}  // namespace

RunningHash::RunningHash() : context_(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
    if (!context_) throw std::bad_alloc();
    check(EVP_DigestInit_ex2(context_.get(), EVP_sha256(), nullptr));
}

void RunningHash::add(std::span<const char> bytes) {
    check(EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()));
}

std::string RunningHash::hexadecimal() {
    constexpr const char* hexDigits = "0123456789abcdef";
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
    unsigned length = 0;
    check(EVP_DigestFinal_ex(context_.get(), hash.data(), &length));
    std::string text;
    text.reserve(std::size_t{length} * 2);
    for (const unsigned char byte : std::span(hash).first(length)) {
        text += hexDigits[byte >> 4];
        text += hexDigits[byte & 15];
    }
    return text;
}

std::string FileHasher::sha256(std::string_view data) {
    RunningHash digest;
    digest.add(data);
    return digest.hexadecimal();
}

std::string FileHasher::sha256Of(const std::filesystem::path& path, const Progress& progress) {
    return sha256Of(openRegularFile(path), path, progress);
}

std::string FileHasher::sha256Of(const Descriptor& file, const std::filesystem::path& path,
                                 const Progress& progress) {
    return Reader(file, path).hash(std::numeric_limits<std::int64_t>::max(), progress);
}

FileHasher::Look FileHasher::lookAt(const std::filesystem::path& path, const Progress& progress) {
    for (int look = 1;; ++look) {
        const Descriptor file = openRegularFile(path);
        Reader reader(file, path);
        const FileStamp before = reader.stamp();
        std::string hash = reader.hash(before.size, progress);
        const bool isWhole = reader.total() == before.size;
        if ((isWhole && reader.stamp() == before) || (isWhole && look == mostLooks))
            return {std::move(hash), before};
        if (look == mostLooks) throw FileError("Could not read", path, ESTALE);
    }
}

}  // namespace vark
