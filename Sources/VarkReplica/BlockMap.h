#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace vark {

/// Bytes of a content, from `begin` to before `end`.
struct ByteRange {
    std::int64_t begin = 0;
    std::int64_t end = 0;
    bool operator==(const ByteRange&) const = default;
};

/// Which blocks of a content are here. A value.
class BlockMap {
  public:
    static constexpr std::int64_t blockSize = 256 * 1024;

    explicit BlockMap(std::int64_t size);

    std::int64_t size() const { return size_; }
    bool has(ByteRange range) const { return !firstMissing(range); }
    bool isWhole() const { return blocksHere_ == here_.size(); }
    /// Where the first block begins that is touched by the range and is not here.
    std::optional<std::int64_t> firstMissing(ByteRange range) const;
    /// Where what is missing from `begin` on ends: at a block that is here, or at the end.
    std::int64_t endOfMissing(std::int64_t begin) const;

    /// The blocks that lie whole in the range; the last one may be shorter.
    void add(ByteRange range);
    void clear();

  private:
    std::int64_t size_;
    std::vector<bool> here_;
    std::size_t blocksHere_ = 0;
};

/// Smaller files come as a whole.
inline constexpr std::int64_t smallFile = 4LL * 1024 * 1024;
/// The length of the longest run.
inline constexpr std::int64_t longestRun = 32LL * 1024 * 1024;

/// What is to be fetched when the block at `missing` is needed: of a small file everything; of a large one
/// the block alone, and when the block before it is here, since somebody reads on, as far as a run goes. So a
/// look at the head of a large file costs one block. Ends at what is here.
ByteRange runFor(const BlockMap& map, std::int64_t missing);

}  // namespace vark
