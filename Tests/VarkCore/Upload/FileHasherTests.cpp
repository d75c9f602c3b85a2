#include "VarkCore/Upload/FileHasher.h"

#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

constexpr std::int64_t piece = 1'048'576;

TEST(FileHasher, HashesKnownBytes) {
    EXPECT_EQ(FileHasher::sha256(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(FileHasher::sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(FileHasher, HashesAFileInPiecesAndTellsTheTotals) {
    const TemporaryFolder folder;
    std::string content(2 * piece + 5, '\0');
    for (std::size_t place = 0; place < content.size(); ++place)
        content[place] = static_cast<char>(place * 31 / 7);
    std::vector<std::int64_t> totals;
    const std::string hash = FileHasher::sha256Of(folder.file("a", content), [&](std::int64_t total) {
        totals.push_back(total);
        return true;
    });
    EXPECT_EQ(hash, FileHasher::sha256(content));
    EXPECT_EQ(totals, (std::vector<std::int64_t>{piece, 2 * piece, 2 * piece + 5}));
}

TEST(FileHasher, StopsWhenProgressSaysSo) {
    const TemporaryFolder folder;
    int calls = 0;
    const auto stop = [&](std::int64_t) { return ++calls < 2; };
    EXPECT_THROW(FileHasher::sha256Of(folder.file("a", std::string(3 * piece, 'x')), stop),
                 FileHasher::Cancelled);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(FileHasher::sha256Of(folder.file("empty"), stop), FileHasher::sha256(""));
    EXPECT_EQ(calls, 2);
    EXPECT_THROW(FileHasher::sha256Of(folder / "none"), FileError);
    EXPECT_THROW(FileHasher::sha256Of(folder.path()), FileError);
}

}  // namespace
}  // namespace vark
