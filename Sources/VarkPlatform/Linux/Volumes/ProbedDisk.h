#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace vark {

/// What stands in the head of the file system on a disk. A value.
struct ProbedDisk {
    std::optional<std::string> label;
    std::optional<std::string> id;

    /// Nothing of a disk that this process may not read.
    static ProbedDisk at(const std::filesystem::path& device);
};

}  // namespace vark
