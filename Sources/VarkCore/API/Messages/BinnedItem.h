#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vark {

/// What the Bin knows of a path.
struct BinnedItem {
    std::optional<std::int64_t> id{};
    bool isDir = false;
    std::int64_t size = 0;
    std::string sha256{};
    std::string originalPath{};
    std::string deletedBy{};

    /// Nothing when `path` is not in the Bin, or when the answer cannot be read: this question must not stop
    /// anyone.
    static std::optional<BinnedItem> from(std::string_view body, std::string_view path);
    bool operator==(const BinnedItem&) const = default;
};

}  // namespace vark
