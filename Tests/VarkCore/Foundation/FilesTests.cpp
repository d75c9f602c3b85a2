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

using testing::HasSubstr;

mode_t modeOf(const std::filesystem::path& path) {
    struct stat values{};
    stat(path.c_str(), &values);
    return values.st_mode & 07777;
}

std::ptrdiff_t namesIn(const std::filesystem::path& folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

TEST(Files, AtomicWriteReplacesTheFileWithTheModeWhateverTheUmask) {
    const TemporaryFolder folder;
    const std::filesystem::path path = folder.file("a.json", "old and longer");
    const mode_t before = umask(0777);
    writeAtomically(path, "new", 0640);
    writeAtomically(folder / "b.json", "", 0600, Durability::cached);
    umask(before);
    EXPECT_EQ(readWholeFile(path), "new");
    EXPECT_EQ(modeOf(path), 0640U);
    EXPECT_EQ(modeOf(folder / "b.json"), 0600U);
    EXPECT_EQ(namesIn(folder.path()), 2);
}

TEST(Files, FailedWriteLeavesNothingBehind) {
    const TemporaryFolder folder;
    folder.file("taken/inside");
    EXPECT_THROW(writeAtomically(folder / "taken", "bytes", 0600), FileError);
    EXPECT_EQ(namesIn(folder.path()), 1);
    EXPECT_THROW(writeAtomically(folder / "missing" / "a", "bytes", 0600), FileError);
}

TEST(Files, FullDiskIsAFailureWithASentence) {
    struct Case {
        int number;
        const char* sentence;
    };
    for (const Case& each :
         {Case{ENOSPC, "Could not write /a\\n: the disk is full. Free some space, then try again."},
          Case{ENOENT, "Could not write /a\\n: it is not there."},
          Case{EIO, "Could not write /a\\n: Input/output error."}}) {
        EXPECT_STREQ(FileError("Could not write", "/a\n", each.number).what(), each.sentence);
    }
}

TEST(Files, ReadsWholeFilesUpToTheLimit) {
    const TemporaryFolder folder;
    const std::string content(10000, 'x');
    const std::filesystem::path path = folder.file("a", content);
    EXPECT_EQ(readWholeFile(path, 10000), content);
    EXPECT_THROW(readWholeFile(path, 9999), FileError);
    EXPECT_THROW(readWholeFile(folder.path()), FileError);
    EXPECT_EQ(readWholeFile(folder.file("empty")), "");
    // Such a file has a size of 0 and content all the same.
    EXPECT_THAT(readWholeFile("/proc/self/status"), HasSubstr("Name:"));
    EXPECT_THROW(readWholeFile("/proc/self/status", 10), FileError);
    try {
        readWholeFile(folder / "none");
        FAIL() << "a missing file was read";
    } catch (const FileError& error) {
        EXPECT_EQ(error.errorNumber(), ENOENT);
    }
}

TEST(Files, AStampIsTheSameAfterItsTimeWasWrittenDown) {
    constexpr double time = 1'760'000'000.123'456'7;
    const FileStamp stamp{5, time};
    EXPECT_EQ(stamp, (FileStamp{5, std::nextafter(time, 0)}));
    EXPECT_NE(stamp, (FileStamp{6, time}));
    EXPECT_NE(stamp, (FileStamp{5, time + 0.000'01}));
}

TEST(Files, DescriptorsAreClosedOnceAndNotHandedToPrograms) {
    const TemporaryFolder folder;
    Descriptor first = openForReading(folder.file("a"));
    const int number = first.get();
    EXPECT_NE(fcntl(number, F_GETFD) & FD_CLOEXEC, 0);
    Descriptor second = std::move(first);
    second = Descriptor();
    EXPECT_EQ(fcntl(number, F_GETFD), -1);
}

TEST(FileLock, OnlyOneHoldsIt) {
    const TemporaryFolder folder;
    const std::filesystem::path path = folder / ".lock";
    std::optional<FileLock> held = FileLock::tryExclusive(path);
    ASSERT_TRUE(held);
    EXPECT_EQ(modeOf(path), 0600U);
    EXPECT_FALSE(FileLock::tryExclusive(path));
    FileLock moved = std::move(*held);
    held.reset();
    EXPECT_FALSE(FileLock::tryExclusive(path));
    moved.unlock();
    EXPECT_TRUE(FileLock::tryExclusive(path));
    EXPECT_THROW(FileLock::exclusive(folder / "missing" / ".lock"), FileError);
}

TEST(FileLock, GoesBackEvenIfAForkedChildStillHasTheDescriptor) {
    const TemporaryFolder folder;
    int gate[2];
    ASSERT_EQ(pipe(gate), 0);
    std::optional<FileLock> held = FileLock::exclusive(folder / ".lock");
    const pid_t child = fork();
    if (child == 0) {
        close(gate[1]);
        char byte = 0;
        _exit(read(gate[0], &byte, 1) == 0 ? 0 : 1);
    }
    close(gate[0]);
    held.reset();
    EXPECT_TRUE(FileLock::tryExclusive(folder / ".lock"));
    close(gate[1]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace vark
