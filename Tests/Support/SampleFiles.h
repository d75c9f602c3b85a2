#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vark::test {

/// A file of pseudo-random bytes that a test has written, and what must arrive of it.
struct SampleFile {
    std::string relativePath;
    std::int64_t size = 0;
    std::string sha256;
};

/// Writes `size` bytes, different for each seed.
SampleFile writeSample(const std::filesystem::path& folder, const std::string& relativePath,
                       std::int64_t size, std::uint64_t seed);

struct SampleSet {
    int count = 0;
    /// The size of the one largest file.
    std::int64_t largest = 0;
    std::int64_t chunkSize = 0;
    std::uint64_t seed = 1;
};

/// Writes a folder of files in nested folders with every kind of name that a person, or another system, may
/// give a file; among them empty files and files of a whole number of chunks.
std::vector<SampleFile> writeSamples(const std::filesystem::path& folder, const SampleSet& set);

std::string sha256(std::string_view bytes);

}  // namespace vark::test
