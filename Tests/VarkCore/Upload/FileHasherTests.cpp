#include "VarkCore/Upload/FileHasher.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

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

TEST(FileHasher, LooksAgainAtAFileThatChangesMeanwhile) {
    const TemporaryFolder folder;
    const std::filesystem::path path = folder.file("a", std::string(2 * piece, 'x'));
    for (int changes : {0, 1, 100}) {
        SCOPED_TRACE(changes);
        int left = changes;
        const FileHasher::Look look = FileHasher::lookAt(path, [&](std::int64_t total) {
            if (total % (2 * piece) == piece && left-- > 0) {
                // Longer, so that it shows also where the clock of the files is slow.
                std::filesystem::resize_file(path, std::filesystem::file_size(path) + 5);
            }
            return true;
        });
        // One that never stands still shows it by its stamp.
        EXPECT_EQ(look.stamp == stampOf(path), changes < 100);
        const std::string content = readWholeFile(path);
        EXPECT_EQ(look.sha256, FileHasher::sha256(std::string_view(content).substr(
                                   0, static_cast<std::size_t>(look.stamp.size))));
    }
}

TEST(FileHasher, FailsAtOnceForWhatIsNoFile) {
    const TemporaryFolder folder;
    const std::filesystem::path pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::filesystem::create_symlink(pipe, folder / "link to the pipe");
    std::filesystem::create_symlink(folder.file("file", "abc"), folder / "link to the file");
    for (const std::filesystem::path& path :
         {pipe, folder / "link to the pipe", folder.path(), std::filesystem::path("/dev/zero")})
        EXPECT_THROW(FileHasher::lookAt(path), FileError) << path;
    EXPECT_EQ(FileHasher::lookAt(folder / "link to the file").sha256, FileHasher::sha256("abc"));
}

}  // namespace
}  // namespace vark
