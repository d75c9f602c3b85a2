#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <vector>

namespace vark {

/// A set of positions in a list, with the lowest one always at hand: three levels of bits, so that a million
/// members cost some 130 kB and every operation a handful of instructions. A value.
class IndexSet {
  public:
    void put(std::size_t index, bool isMember) {
        if (isMember) {
            insert(index);
        } else {
            erase(index);
        }
    }
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
    std::optional<std::size_t> first() const { return next(0); }
    /// The lowest member that is not below `from`.
    std::optional<std::size_t> next(std::size_t from) const {
        std::size_t index = from;
        for (std::size_t level = 0; level < levels; ++level) {
            const std::vector<std::uint64_t>& words = words_[level];
            std::size_t word = index / 64;
            if (word >= words.size()) return std::nullopt;
            std::uint64_t members = words[word] & (~std::uint64_t{0} << (index % 64));
            const bool isTop = level + 1 == levels;
            while (isTop && members == 0 && ++word < words.size())
                members = words[word];
            if (members != 0) return lowestBelow(level, word * 64 + lowestBit(members));
            index = word + 1;
        }
        return std::nullopt;
    }

    class Iterator {
      public:
        explicit Iterator(const IndexSet& set) : set_(&set), at_(set.first()) {}
        std::size_t operator*() const { return *at_; }
        Iterator& operator++() {
            at_ = set_->next(*at_ + 1);
            return *this;
        }
        bool operator==(std::default_sentinel_t) const { return !at_; }

      private:
        const IndexSet* set_;
        std::optional<std::size_t> at_;
    };
    /// In ascending order. The set may change on the way: what comes behind is met.
    Iterator begin() const { return Iterator(*this); }
    std::default_sentinel_t end() const { return {}; }
    bool empty() const { return !first().has_value(); }
    void clear() {
        for (std::vector<std::uint64_t>& words : words_)
            words.clear();
    }

  private:
    static constexpr std::size_t levels = 3;

    static std::size_t lowestBit(std::uint64_t word) {
        return static_cast<std::size_t>(std::countr_zero(word));
    }
    /// Of the members that the bit `index` of that level stands for.
    std::size_t lowestBelow(std::size_t level, std::size_t index) const {
        while (level-- > 0)
            index = index * 64 + lowestBit(words_[level][index]);
        return index;
    }

    std::vector<std::uint64_t> words_[levels];
};

}  // namespace vark
