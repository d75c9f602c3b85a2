#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace vark {

/// The arithmetic of a file that travels in chunks of one size, the last one shorter. A value; any thread.
///
/// `have` lists the chunks that the vark holds, in its own words: repeats count once and indexes that do not
/// exist are passed over, since an earlier life of the upload may have used a smaller chunk size.
class ChunkPlan {
  public:
    /// The sizes come from outside, so this is a bad answer of the vark and no mistake of ours.
    struct BadPlan : std::runtime_error {
        explicit BadPlan(const std::string& why) : std::runtime_error(why), reason(why) {}
        std::string reason;
    };

    /// Bytes of the file from `start` up to but without `end`.
    struct Range {
        std::int64_t start = 0;
        std::int64_t end = 0;
        bool operator==(const Range&) const = default;
    };

    /// Both in bytes. Fails with `BadPlan`.
    ChunkPlan(std::int64_t fileSize, std::int64_t chunkSize);

    std::int64_t fileSize() const { return fileSize_; }
    std::int64_t chunkSize() const { return chunkSize_; }
    /// The number of chunks.
    std::int64_t count() const;
    /// An index outside 0 ..< count() is a mistake of the caller's and ends the process.
    Range range(std::int64_t index) const;
    std::int64_t length(std::int64_t index) const;
    /// The indexes still to send, ascending.
    std::vector<std::int64_t> missing(std::span<const std::int64_t> have) const;
    std::int64_t bytesDone(std::span<const std::int64_t> have) const;

    bool operator==(const ChunkPlan&) const = default;

  private:
    std::vector<std::int64_t> held(std::span<const std::int64_t> have) const;

    std::int64_t fileSize_;
    std::int64_t chunkSize_;
};

}  // namespace vark
