#include "VarkCore/Upload/FilePieces.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace vark {
namespace {

constexpr std::int64_t largestPiece = 262'144;
constexpr double longestPause = 2;

}  // namespace

FilePieces::FilePieces(std::filesystem::path path, std::int64_t offset, std::int64_t length)
    : path_(std::move(path)),
      file_(openRegularFile(path_)),
      offset_(offset),
      length_(std::max<std::int64_t>(length, 0)) {
    if (offset < 0) throw FileError("Could not read", path_, EINVAL);
}

std::size_t FilePieces::sizeOfNext() const {
    return static_cast<std::size_t>(std::min(largestPiece, length_ - read_));
}

std::size_t FilePieces::read(std::span<char> room) {
    const std::size_t wanted = std::min(room.size(), sizeOfNext());
    for (;;) {
        const ssize_t count = pread(file_.get(), room.data(), wanted, offset_ + read_);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw FileError("Could not read", path_, errno);
        read_ += count;
        return static_cast<std::size_t>(count);
    }
}

double pauseBefore(TokenBucket* limiter, std::size_t bytes, Date now) {
    if (limiter == nullptr) return 0;
    return std::min(limiter->delay(static_cast<std::int64_t>(bytes), now), longestPause);
}

}  // namespace vark
