#include "VarkCore/Upload/ChunkPlan.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace vark {

ChunkPlan::ChunkPlan(std::int64_t fileSize, std::int64_t chunkSize)
    : fileSize_(fileSize), chunkSize_(chunkSize) {
    if (chunkSize < 1) throw BadPlan("chunk size must be positive");
    if (fileSize < 0) throw BadPlan("file size cannot be negative");
}

std::int64_t ChunkPlan::count() const {
    return fileSize_ / chunkSize_ + (fileSize_ % chunkSize_ == 0 ? 0 : 1);
}

ChunkPlan::Range ChunkPlan::range(std::int64_t index) const {
    if (index < 0 || index >= count()) {
        std::fputs("A chunk was asked for that the plan does not have.\n", stderr);
        std::abort();
    }
    const std::int64_t start = index * chunkSize_;
    // The sum of start and size could pass the largest number when the vark chose an enormous size.
    return {start, start + std::min(chunkSize_, fileSize_ - start)};
}

std::int64_t ChunkPlan::length(std::int64_t index) const {
    const Range range = this->range(index);
    return range.end - range.start;
}

/// What is real of `have`, ascending and each once. Costs nothing by the number of chunks, which the vark
/// chooses.
std::vector<std::int64_t> ChunkPlan::held(std::span<const std::int64_t> have) const {
    const std::int64_t count = this->count();
    std::vector<std::int64_t> held;
    held.reserve(have.size());
    std::ranges::copy_if(have, std::back_inserter(held),
                         [count](std::int64_t index) { return index >= 0 && index < count; });
    if (!std::ranges::is_sorted(held)) std::ranges::sort(held);
    const auto repeats = std::ranges::unique(held);
    held.erase(repeats.begin(), repeats.end());
    return held;
}

std::vector<std::int64_t> ChunkPlan::missing(std::span<const std::int64_t> have) const {
    const std::vector<std::int64_t> held = this->held(have);
    std::vector<std::int64_t> missing;
    missing.reserve(static_cast<std::size_t>(count()) - held.size());
    std::int64_t next = 0;
    for (const std::int64_t index : held) {
        for (; next < index; ++next)
            missing.push_back(next);
        ++next;
    }
    for (; next < count(); ++next)
        missing.push_back(next);
    return missing;
}

std::int64_t ChunkPlan::bytesDone(std::span<const std::int64_t> have) const {
    const std::vector<std::int64_t> held = this->held(have);
    if (held.empty()) return 0;
    // Every chunk but the last one of the file is whole.
    return static_cast<std::int64_t>(held.size() - 1) * chunkSize_ + length(held.back());
}

}  // namespace vark
