#pragma once

#include <algorithm>
#include <filesystem>

namespace vark {

/// Absolute, without "." and "..", and without a "/" at its end, which would lead through a link. The file
/// system is not asked.
inline std::filesystem::path standardised(const std::filesystem::path& path) {
    const std::filesystem::path normal = std::filesystem::absolute(path).lexically_normal();
    return normal.has_filename() ? normal : normal.parent_path();
}

/// Whether `path` is the folder or lies below it, by the names alone.
inline bool liesIn(const std::filesystem::path& path, const std::filesystem::path& folder) {
    return std::ranges::mismatch(folder, path).in1 == folder.end();
}

}  // namespace vark
