#include "Tests/Support/SampleFiles.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <functional>
#include <random>

#include "VarkBox/Store/Hasher.h"

namespace vark::test {

namespace {

std::string longName() {
    std::string name;
    while (name.size() < 240)
        name += "長x";
    return name;
}

// Each takes the number of the file.
const std::array oddNames = {
    std::string("Take {}.mov"),
    std::string("two  blanks and one at the end {} "),
    std::string("\"quoted\" it's `{}`"),
    std::string("line\nbreak\r{}"),
    std::string("🎬 clap 👩‍👩‍👧 {}.mp4"),
    std::string("de\u0301compose\u0301 A\u030A {}"),
    longName() + "{}",
    std::string("back\\slash and %41%2F {}"),
    std::string("\x1b[31mred\x1b[0m\a {}"),
    std::string("-{} --help"),
    std::string("a:b*c?d<e>|{}."),
    std::string("a#b&c=d;e+f@{}?x=1"),
    std::string("\u202Egnp.{}\u200B"),
    std::string("composé {}"),
};
const std::array folders = {"", "Card A/DCIM/100 MEDIA/", "Tag\nodd 'folder'/", "a/b/c/d/e/f/g/h/",
                            "Fol\u0308der/"};

/// Sizes over all orders of magnitude.
std::vector<std::int64_t> sizesOf(const SampleSet& set, std::mt19937_64& random) {
    std::vector<std::int64_t> sizes{
        0, 0, 1, set.largest, set.chunkSize, set.chunkSize - 1, set.chunkSize + 1, 3 * set.chunkSize};
    while (std::ssize(sizes) < set.count)
        sizes.push_back(set.largest >> std::uniform_int_distribution<>(3, 24)(random));
    std::ranges::shuffle(sizes, random);
    return sizes;
}

}  // namespace

SampleFile writeSample(const std::filesystem::path& folder, const std::string& relativePath,
                       std::int64_t size, std::uint64_t seed) {
    const std::filesystem::path path = folder / relativePath;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    box::Hasher hasher;
    std::mt19937_64 random(seed);
    std::array<std::uint64_t, 1 << 15> piece{};
    for (auto left = static_cast<std::size_t>(size); left > 0;) {
        std::ranges::generate(piece, std::ref(random));
        const std::string_view bytes(reinterpret_cast<const char*>(piece.data()),
                                     std::min(left, sizeof piece));
        hasher.add(bytes);
        file << bytes;
        left -= bytes.size();
    }
    return {relativePath, size, hasher.digest()};
}

std::vector<SampleFile> writeSamples(const std::filesystem::path& folder, const SampleSet& set) {
    std::mt19937_64 random(set.seed);
    std::vector<SampleFile> files;
    for (const std::int64_t size : sizesOf(set, random)) {
        const std::size_t number = files.size();
        const std::string name = fmt::format(fmt::runtime(oddNames[number % oddNames.size()]), number);
        files.push_back(writeSample(folder, folders[number % folders.size()] + name, size, random()));
    }
    return files;
}

std::string sha256(std::string_view bytes) {
    box::Hasher hasher;
    hasher.add(bytes);
    return hasher.digest();
}

}  // namespace vark::test
