#include "VarkCore/Foundation/Files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>

#include "Tests/Support/TemporaryFolder.h"

namespace vark {
namespace {

class Files : public testing::Test {
  protected:
    std::ptrdiff_t names() const {
        return std::distance(std::filesystem::directory_iterator(folder.path()), {});
    }
    TemporaryFolder folder;
};

TEST_F(Files, AtomicWriteReplacesTheFileWithTheModeWhateverTheUmask) {
    const std::filesystem::path path = folder.file("a.json", "old and longer");
    const mode_t before = umask(0777);
    writeAtomically(path, "new", 0640);
    umask(before);
    EXPECT_EQ(readWholeFile(path), "new");
    EXPECT_EQ(status(path).permissions(), std::filesystem::perms(0640));
    EXPECT_EQ(names(), 1);
    // One that fails leaves nothing behind.
    folder.file("taken/inside");
    EXPECT_THROW(writeAtomically(folder / "taken", "bytes", 0600), FileError);
    EXPECT_EQ(names(), 2);
}

TEST_F(Files, ReadsWholeFilesUpToTheLimit) {
    const std::string content(10000, 'x');
    const std::filesystem::path path = folder.file("a", content);
    EXPECT_EQ(readWholeFile(path, 10000), content);
    EXPECT_THROW(readWholeFile(path, 9999), FileError);
    EXPECT_THROW(readWholeFile(folder.path()), FileError);
    // Such a file has a size of 0 and content all the same.
    EXPECT_THAT(readWholeFile("/proc/self/status"), testing::HasSubstr("Name:"));
    EXPECT_THROW(readWholeFile("/proc/self/status", 10), FileError);
}

TEST_F(Files, AStampIsTheSameAfterItsTimeWasWrittenDown) {
    constexpr double time = 1'760'000'000.123'456'7;
    const FileStamp stamp{5, time};
    EXPECT_EQ(stamp, (FileStamp{5, std::nextafter(time, 0)}));
    EXPECT_NE(stamp, (FileStamp{6, time}));
    EXPECT_NE(stamp, (FileStamp{5, time + 0.000'01}));
}

TEST_F(Files, OnlyOneHoldsALockAndAForkedChildKeepsItFromNobody) {
    const std::filesystem::path path = folder / ".lock";
    int gate[2];
    ASSERT_EQ(pipe(gate), 0);
    FileLock held = FileLock::exclusive(path);
    EXPECT_EQ(status(path).permissions(), std::filesystem::perms(0600));
    const pid_t child = fork();
    if (child == 0) {
        close(gate[1]);
        char byte = 0;
        _exit(read(gate[0], &byte, 1) == 0 ? 0 : 1);
    }
    close(gate[0]);
    EXPECT_FALSE(FileLock::tryExclusive(path));
    FileLock moved = std::move(held);
    EXPECT_FALSE(FileLock::tryExclusive(path));
    moved.unlock();
    EXPECT_TRUE(FileLock::tryExclusive(path));
    close(gate[1]);
    int ended = 0;
    waitpid(child, &ended, 0);
    EXPECT_EQ(ended, 0);
}

}  // namespace
}  // namespace vark
