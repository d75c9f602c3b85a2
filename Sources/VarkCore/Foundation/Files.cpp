#include "VarkCore/Foundation/Files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Foundation/UUID.h"

namespace vark {
namespace {

std::string reason(int errorNumber) {
    switch (errorNumber) {
        case ENOSPC:
            return "the disk is full. Free some space, then try again.";
        case EDQUOT:
            return "your share of the disk is used up. Free some space, then try again.";
        case EACCES:
        case EPERM:
            return "you are not allowed to. Check who may read and write it.";
        case EROFS:
            return "the disk can only be read.";
        case ENOENT:
            return "it is not there.";
        case EFBIG:
            return "it is too large.";
        case EEXIST:
            return "something of that name is there already.";
        case ENOTDIR:
            return "something that is no folder is in its way.";
        case EISDIR:
            return "it is a folder.";
        case EPIPE:
            return "nobody reads it any more.";
        case ELOOP:
            return "it is a link, which is not followed.";
        case ENAMETOOLONG:
            return "its name is too long for this disk.";
        default:
            return std::generic_category().message(errorNumber) + ".";
    }
}

/// Repeats a system call for as long as a signal interrupts it.
template <class Call>
auto uninterrupted(Call call) {
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR) return result;
    }
}

std::filesystem::path folderOf(const std::filesystem::path& path) {
    return path.has_parent_path() ? path.parent_path() : ".";
}

Descriptor openForAppending(const std::filesystem::path& path) {
    return Descriptor(
        uninterrupted([&] { return open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600); }));
}

/// Nothing when somebody else has the lock and `operation` does not wait.
bool takeLock(const Descriptor& file, const std::filesystem::path& path, int operation) {
    if (uninterrupted([&] { return flock(file.get(), operation); }) == 0) return true;
    if (errno == EWOULDBLOCK) return false;
    throw FileError("Could not lock", path, errno);
}

Descriptor openLockFile(const std::filesystem::path& path) {
    Descriptor file(uninterrupted([&] { return open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600); }));
    if (!file) throw FileError("Could not open", path, errno);
    return file;
}

}  // namespace

FileError::FileError(std::string_view whatWasTried, const std::filesystem::path& path, int errorNumber)
    : std::runtime_error(std::string(whatWasTried) + " " + escapedForTerminal(path.native()) + ": " +
                         reason(errorNumber)),
      errorNumber_(errorNumber) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this != &other) {
        close();
        descriptor_ = other.release();
    }
    return *this;
}

void Descriptor::close() {
    if (descriptor_ >= 0) ::close(release());
}

Descriptor openForReading(const std::filesystem::path& path) {
    Descriptor file(uninterrupted([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
    if (!file) throw FileError("Could not open", path, errno);
    return file;
}

Descriptor openEmptied(const std::filesystem::path& path) {
    Descriptor file(uninterrupted(
        [&] { return open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600); }));
    if (!file) throw FileError("Could not create", path, errno);
    return file;
}

void writeAll(const Descriptor& file, std::string_view bytes, const std::filesystem::path& path) {
    while (!bytes.empty()) {
        const ssize_t written =
            uninterrupted([&] { return ::write(file.get(), bytes.data(), bytes.size()); });
        if (written < 0) throw FileError("Could not write", path, errno);
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

std::string readWholeFile(const std::filesystem::path& path, std::uint64_t limit) {
    constexpr std::size_t smallestPiece = 4096;
    const Descriptor file = openForReading(path);
    struct stat values{};
    if (fstat(file.get(), &values) != 0) throw FileError("Could not read", path, errno);
    if (static_cast<std::uint64_t>(values.st_size) > limit) throw FileError("Could not read", path, EFBIG);

    std::string bytes;
    // One byte more than the size lets the end show itself without another growth.
    std::size_t room = std::max(static_cast<std::size_t>(values.st_size) + 1, smallestPiece);
    for (;;) {
        const std::size_t before = bytes.size();
        ssize_t read = 0;
        bytes.resize_and_overwrite(before + room, [&](char* buffer, std::size_t) {
            read = uninterrupted([&] { return ::read(file.get(), buffer + before, room); });
            return before + static_cast<std::size_t>(std::max<ssize_t>(read, 0));
        });
        if (read < 0) throw FileError("Could not read", path, errno);
        if (read == 0) return bytes;
        if (bytes.size() > limit) throw FileError("Could not read", path, EFBIG);
        room = std::max(bytes.capacity() - bytes.size(), smallestPiece);
    }
}

std::filesystem::path temporaryPathBeside(const std::filesystem::path& path) {
    return folderOf(path) / (".vark-" + UUID::random().text() + ".tmp");
}

UnfinishedFile::UnfinishedFile(std::filesystem::path path, mode_t mode) : path_(std::move(path)) {
    file_ = Descriptor(uninterrupted(
        [&] { return open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode); }));
    if (!file_) throw FileError("Could not create", path_, errno);
    // The umask may have taken bits away.
    if (fchmod(file_.get(), mode) != 0) {
        const int failure = errno;
        unlink(path_.c_str());
        throw FileError("Could not set the permissions of", path_, failure);
    }
}

UnfinishedFile::~UnfinishedFile() {
    if (!finished_) unlink(path_.c_str());
}

void UnfinishedFile::write(std::string_view bytes) {
    writeAll(file_, bytes, path_);
}

void UnfinishedFile::startOver() {
    if (ftruncate(file_.get(), 0) != 0 || lseek(file_.get(), 0, SEEK_SET) != 0)
        throw FileError("Could not write", path_, errno);
}

void UnfinishedFile::sync() {
    if (uninterrupted([&] { return fdatasync(file_.get()); }) != 0)
        throw FileError("Could not write", path_, errno);
}

void UnfinishedFile::renameTo(const std::filesystem::path& path) {
    if (rename(path_.c_str(), path.c_str()) != 0) throw FileError("Could not replace", path, errno);
    finished_ = true;
}

void writeAtomically(const std::filesystem::path& path, std::string_view bytes, mode_t mode,
                     Durability durability) {
    const std::filesystem::path folder = folderOf(path);
    UnfinishedFile file(temporaryPathBeside(path), mode);
    file.write(bytes);
    if (durability == Durability::cached) {
        file.renameTo(path);
        return;
    }
    const Descriptor openFolder = openForReading(folder);
    file.sync();
    file.renameTo(path);
    // Some file systems cannot sync a folder and say EINVAL; the name is then as safe as they make it.
    if (uninterrupted([&] { return fsync(openFolder.get()); }) != 0 && errno != EINVAL) {
        throw FileError("Could not write", folder, errno);
    }
}

bool appendInOneWrite(const std::filesystem::path& path, std::string_view bytes) {
    Descriptor file = openForAppending(path);
    if (!file && errno == ENOENT) {
        std::error_code ignored;
        std::filesystem::create_directories(folderOf(path), ignored);
        file = openForAppending(path);
    }
    if (!file) return false;
    const ssize_t written = uninterrupted([&] { return ::write(file.get(), bytes.data(), bytes.size()); });
    return written >= 0 && static_cast<std::size_t>(written) == bytes.size();
}

FileLock FileLock::exclusive(const std::filesystem::path& path) {
    Descriptor file = openLockFile(path);
    takeLock(file, path, LOCK_EX);
    return FileLock(std::move(file));
}

std::optional<FileLock> FileLock::tryExclusive(const std::filesystem::path& path) {
    Descriptor file = openLockFile(path);
    if (!takeLock(file, path, LOCK_EX | LOCK_NB)) return std::nullopt;
    return FileLock(std::move(file));
}

FileLock& FileLock::operator=(FileLock&& other) noexcept {
    if (this != &other) {
        unlock();
        descriptor_ = std::move(other.descriptor_);
    }
    return *this;
}

void FileLock::unlock() {
    if (!descriptor_) return;
    // Closing alone would leave the lock with a child that was forked and has not yet run its program.
    flock(descriptor_.get(), LOCK_UN);
    descriptor_.close();
}

}  // namespace vark
