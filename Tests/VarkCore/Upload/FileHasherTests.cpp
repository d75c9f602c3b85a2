#include "VarkCore/Upload/FileHasher.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

constexpr std::int64_t piece = 1'048'576;
const std::string hashOfABC = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

TEST(FileHasher, HashesAFileInPiecesUntilItIsToldToStop) {
    const TemporaryFolder folder;
    EXPECT_EQ(FileHasher::sha256("abc"), hashOfABC);
    EXPECT_EQ(FileHasher::sha256Of(folder.file("empty")), FileHasher::sha256(""));
    const std::string content = std::string(2 * piece, 'x') + "other";
    const std::filesystem::path file = folder.file("a", content);
    std::vector<std::int64_t> totals;
    const auto note = [&](std::int64_t total) {
        totals.push_back(total);
        return totals.size() < 4;
    };
    EXPECT_EQ(FileHasher::sha256Of(file, note), FileHasher::sha256(content));
    EXPECT_EQ(totals, (std::vector<std::int64_t>{piece, 2 * piece, 2 * piece + 5}));
    EXPECT_THROW(FileHasher::sha256Of(file, note), FileHasher::Cancelled);
    EXPECT_EQ(totals.size(), 4U);
}

TEST(FileHasher, LooksAgainAtAFileThatChangesMeanwhile) {
    const TemporaryFolder folder;
    const std::filesystem::path path = folder.file("a", std::string(2 * piece, 'x'));
    for (int changes : {0, 1, 100}) {
        SCOPED_TRACE(changes);
        int left = changes;
        const FileHasher::Look look = FileHasher::lookAt(path, [&](std::int64_t total) {
            // Longer, so that it shows also where the clock of the files is slow.
            if (total % (2 * piece) == piece && left-- > 0)
                std::filesystem::resize_file(path, std::filesystem::file_size(path) + 5);
            return true;
        });
        // One that never stands still shows it by its stamp.
        EXPECT_EQ(look.stamp == stampOf(path), changes < 100);
        const std::string content = readWholeFile(path).substr(0, static_cast<std::size_t>(look.stamp.size));
        EXPECT_EQ(look.sha256, FileHasher::sha256(content));
    }
}

TEST(FileHasher, FailsAtOnceForWhatIsNoFile) {
    const TemporaryFolder folder;
    const std::filesystem::path pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::filesystem::create_symlink(pipe, folder / "link to the pipe");
    std::filesystem::create_symlink(folder.file("file", "abc"), folder / "link to the file");
    for (const std::filesystem::path& path : {pipe, folder / "link to the pipe", folder.path(),
                                              folder / "none", std::filesystem::path("/dev/zero")})
        EXPECT_THROW(FileHasher::lookAt(path), FileError) << path;
    EXPECT_EQ(FileHasher::lookAt(folder / "link to the file").sha256, hashOfABC);
}

}  // namespace
}  // namespace vark
