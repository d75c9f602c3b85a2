#include "VarkReplica/BlockMap.h"

#include <algorithm>

namespace vark {
namespace {

std::size_t blocksOf(std::int64_t size) {
    return static_cast<std::size_t>((size + BlockMap::blockSize - 1) / BlockMap::blockSize);
}

}  // namespace

BlockMap::BlockMap(std::int64_t size) : size_(std::max<std::int64_t>(size, 0)), here_(blocksOf(size_)) {}

std::optional<std::int64_t> BlockMap::firstMissing(ByteRange range) const {
    const std::int64_t begin = std::max<std::int64_t>(range.begin, 0);
    const std::int64_t end = std::min(range.end, size_);
    if (begin >= end) return std::nullopt;
    const std::size_t last = blocksOf(end);
    for (auto block = static_cast<std::size_t>(begin / blockSize); block < last; ++block) {
        if (!here_[block]) return static_cast<std::int64_t>(block) * blockSize;
    }
    return std::nullopt;
}

std::int64_t BlockMap::endOfMissing(std::int64_t begin) const {
    auto block = static_cast<std::size_t>(begin / blockSize);
    while (block < here_.size() && !here_[block])
        ++block;
    return std::min(static_cast<std::int64_t>(block) * blockSize, size_);
}

void BlockMap::add(ByteRange range) {
    const std::int64_t end = std::min(range.end, size_);
    for (std::size_t block = blocksOf(range.begin); block < here_.size(); ++block) {
        const std::int64_t endOfBlock = std::min(static_cast<std::int64_t>(block + 1) * blockSize, size_);
        if (endOfBlock > end) return;
        if (!here_[block]) ++blocksHere_;
        here_[block] = true;
    }
}

void BlockMap::clear() {
    std::fill(here_.begin(), here_.end(), false);
    blocksHere_ = 0;
}

ByteRange runFor(const BlockMap& map, std::int64_t missing) {
    if (map.size() <= smallFile) return {0, map.size()};
    const bool goesOn = missing > 0 && map.has({missing - 1, missing});
    const std::int64_t length = goesOn ? longestRun : BlockMap::blockSize;
    return {missing, std::min(missing + length, map.endOfMissing(missing))};
}

}  // namespace vark
