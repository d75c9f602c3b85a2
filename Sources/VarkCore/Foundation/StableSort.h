#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <numeric>
#include <utility>
#include <vector>

namespace vark {

/// Sorts by `key` in the order of `less`; what is equal keeps its order. Stands in for the library's own,
/// which our compiler refuses for its deprecated buffer. Costs one walk when all is in order.
template <class T, class Less, class Key>
void stableSort(std::vector<T>& values, Less less, Key key) {
    if (std::ranges::is_sorted(values, less, key)) return;
    std::vector<std::size_t> order(values.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::ranges::sort(order, [&](std::size_t left, std::size_t right) {
        const auto& leftKey = std::invoke(key, values[left]);
        const auto& rightKey = std::invoke(key, values[right]);
        if (less(leftKey, rightKey)) return true;
        return left < right && !less(rightKey, leftKey);
    });
    std::vector<T> sorted;
    sorted.reserve(values.size());
    for (const std::size_t place : order)
        sorted.push_back(std::move(values[place]));
    values = std::move(sorted);
}

}  // namespace vark
