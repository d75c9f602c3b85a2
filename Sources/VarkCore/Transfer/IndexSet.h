#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace vark {

/// A set of positions in a list, with the lowest one always at hand: three levels of bits, so that a million
/// members cost some 130 kB and every operation a handful of instructions. A value.
class IndexSet {
  public:
    void insert(std::size_t index) {
        for (std::size_t level = 0; level < levels; ++level) {
            std::vector<std::uint64_t>& words = words_[level];
            std::size_t word = index / 64;
            if (word >= words.size()) words.resize(word + 1);
            words[word] |= std::uint64_t{1} << (index % 64);
            index = word;
        }
    }
    void erase(std::size_t index) {
        for (std::size_t level = 0; level < levels; ++level) {
            std::vector<std::uint64_t>& words = words_[level];
            std::size_t word = index / 64;
            if (word >= words.size()) return;
            words[word] &= ~(std::uint64_t{1} << (index % 64));
            if (words[word] != 0) return;
            index = word;
        }
    }
    std::optional<std::size_t> first() const {
        for (std::size_t top = 0; top < words_[levels - 1].size(); ++top) {
            if (words_[levels - 1][top] == 0) continue;
            std::size_t index = top;
            for (std::size_t level = levels; level-- > 0;) {
                index = index * 64 + static_cast<std::size_t>(std::countr_zero(words_[level][index]));
            }
            return index;
        }
        return std::nullopt;
    }
    bool empty() const { return !first().has_value(); }
    void clear() {
        for (std::vector<std::uint64_t>& words : words_)
            words.clear();
    }

  private:
    static constexpr std::size_t levels = 3;
    std::vector<std::uint64_t> words_[levels];
};

}  // namespace vark
