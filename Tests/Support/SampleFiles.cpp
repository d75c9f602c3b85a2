#include "Tests/Support/SampleFiles.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <stdexcept>

#include "Tests/Support/BoxClient.h"
#include "VarkBox/Hasher.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::test {

namespace {

constexpr std::size_t pieceSize = 1 << 18;
constexpr std::size_t longName = 250;

/// One step of a counter-based generator: any number of bytes without a state to carry.
std::uint64_t mixed(std::uint64_t value) {
    value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9U;
    value = (value ^ (value >> 27)) * 0x94d049bb133111ebU;
    return value ^ (value >> 31);
}

std::string nameOf(int number) {
    switch (number % 14) {
        case 0:
            return fmt::format("Take {}.mov", number);
        case 1:
            return fmt::format("two  blanks and one at the end {} ", number);
        case 2:
            return fmt::format("\"quoted\" it's `{}`", number);
        case 3:
            return fmt::format("line\nbreak\r{}", number);
        case 4:
            return fmt::format("🎬 clap 👩‍👩‍👧 {}.mp4", number);
        case 5:
            return fmt::format("de\u0301compose\u0301 A\u030A {}", number);
        case 6: {
            std::string name = fmt::format("{} ", number);
            while (name.size() + 4 <= longName)
                name += "長x";
            return name + std::string(longName - name.size(), 'x');
        }
        case 7:
            return fmt::format("back\\slash and %41%2F {}", number);
        case 8:
            return fmt::format("\x1b[31mred\x1b[0m\a {}", number);
        case 9:
            return fmt::format("-{} --help", number);
        case 10:
            return fmt::format("a:b*c?d<e>|{}.", number);
        case 11:
            return fmt::format("a#b&c=d;e+f@{}?x=1", number);
        case 12:
            return fmt::format("\u202Egnp.{}\u200B", number);
        default:
            return fmt::format("composé {}", number);
    }
}

std::string folderOf(int number) {
    switch (number % 5) {
        case 0:
            return "";
        case 1:
            return "Card A/DCIM/100 MEDIA/";
        case 2:
            return fmt::format("Tag {}/\nodd 'folder'/", number % 7);
        case 3:
            return "a/b/c/d/e/f/g/h/";
        default:
            return fmt::format("Fol\u0308der {}/", number % 11);
    }
}

/// Sizes over all orders of magnitude that add up to the total.
std::vector<std::int64_t> sizesOf(const SampleSet& set, std::mt19937_64& random) {
    std::vector<std::int64_t> sizes = {
        0, 0, 1, set.largest, set.chunkSize, set.chunkSize - 1, set.chunkSize + 1, 3 * set.chunkSize};
    std::int64_t left = set.totalBytes;
    for (std::int64_t size : sizes)
        left -= size;
    std::vector<double> weights;
    double sum = 0;
    for (int i = static_cast<int>(sizes.size()); i < set.count; ++i) {
        weights.push_back(std::exp(std::uniform_real_distribution<>(0, 12)(random)));
        sum += weights.back();
    }
    std::int64_t given = 0;
    for (double weight : weights) {
        auto share = static_cast<std::int64_t>(static_cast<double>(left) * weight / sum);
        sizes.push_back(std::min(share, set.largest));
        given += sizes.back();
    }
    sizes.back() += std::max<std::int64_t>(0, std::min(left - given, set.largest - sizes.back()));
    std::ranges::shuffle(sizes, random);
    return sizes;
}

void writeWhole(int file, const char* bytes, std::size_t count) {
    while (count > 0) {
        ssize_t written = ::write(file, bytes, count);
        if (written <= 0) throw std::runtime_error("The sample files do not fit on the disk.");
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
}

}  // namespace

SampleFile writeSample(const std::filesystem::path& folder, const std::string& relativePath,
                       std::int64_t size, std::uint64_t seed) {
    std::filesystem::path path = folder / relativePath;
    std::filesystem::create_directories(path.parent_path());
    Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!file) throw FileError("Could not write", path, errno);
    box::Hasher hasher;
    std::array<std::uint64_t, pieceSize / sizeof(std::uint64_t)> piece{};
    std::uint64_t counter = mixed(seed) << 32;
    for (std::int64_t done = 0; done < size;) {
        for (std::uint64_t& word : piece)
            word = mixed(++counter * 0x9e3779b97f4a7c15U);
        auto count = static_cast<std::size_t>(std::min<std::int64_t>(pieceSize, size - done));
        const char* bytes = static_cast<const char*>(static_cast<const void*>(piece.data()));
        hasher.add(std::string_view(bytes, count));
        writeWhole(file.get(), bytes, count);
        done += static_cast<std::int64_t>(count);
    }
    return {relativePath, size, hasher.digest()};
}

std::vector<SampleFile> writeSamples(const std::filesystem::path& folder, const SampleSet& set) {
    std::mt19937_64 random(set.seed);
    std::vector<std::int64_t> sizes = sizesOf(set, random);
    std::vector<SampleFile> files;
    for (int i = 0; i < set.count; ++i) {
        std::int64_t size = sizes.at(static_cast<std::size_t>(i));
        files.push_back(writeSample(folder, folderOf(i) + nameOf(i), size,
                                    set.seed * 1'000'003 + static_cast<std::uint64_t>(i)));
    }
    return files;
}

}  // namespace vark::test
