#include "VarkCore/Foundation/Files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <system_error>

#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Foundation/UUID.h"

namespace vark {
namespace {

constexpr std::string_view temporaryPrefix = ".vark-";
constexpr std::string_view temporarySuffix = ".tmp";
/// In seconds.
constexpr time_t ageOfALeftover = 3600;

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
        case ESTALE:
            return "it changed while it was read. Try again when nothing writes to it any more.";
        case ENXIO:
            return "it is a pipe, a socket or a device.";
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

void requireRegular(const struct stat& values, const std::filesystem::path& path) {
    if (S_ISDIR(values.st_mode)) throw FileError("Could not open", path, EISDIR);
    if (!S_ISREG(values.st_mode)) throw FileError("Could not open", path, ENXIO);
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

bool FileError::isGone() const {
    return errorNumber_ == ENOENT || errorNumber_ == ENOTDIR || errorNumber_ == ELOOP;
}

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

Descriptor openRegularFile(const std::filesystem::path& path) {
    // To open a device may do something to it, so its kind is asked for first; and again afterwards, since
    // the one that was asked about may have been replaced.
    struct stat values{};
    if (stat(path.c_str(), &values) != 0) throw FileError("Could not open", path, errno);
    requireRegular(values, path);
    auto openWith = [&](int flags) {
        return Descriptor(uninterrupted([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC | flags); }));
    };
    Descriptor file = openWith(O_NONBLOCK | O_NOCTTY);
    // Somebody has a lease on it, which is given back to whoever waits.
    if (!file && errno == EWOULDBLOCK) file = openWith(O_NOCTTY);
    if (!file || fstat(file.get(), &values) != 0) throw FileError("Could not open", path, errno);
    requireRegular(values, path);
    return file;
}

bool FileStamp::operator==(const FileStamp& other) const {
    constexpr double microsecond = 1e-6;
    return size == other.size && std::abs(mtime - other.mtime) < microsecond;
}

FileStamp stampOf(const struct stat& values) {
    return {values.st_size,
            static_cast<double>(values.st_mtim.tv_sec) + static_cast<double>(values.st_mtim.tv_nsec) / 1e9};
}

FileStamp stampOf(const Descriptor& file, const std::filesystem::path& path) {
    struct stat values{};
    if (fstat(file.get(), &values) != 0) throw FileError("Could not read", path, errno);
    return stampOf(values);
}

FileStamp stampOf(const std::filesystem::path& path) {
    struct stat values{};
    if (stat(path.c_str(), &values) != 0) throw FileError("Could not read", path, errno);
    return stampOf(values);
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
    return folderOf(path) / (std::string(temporaryPrefix) + std::to_string(getpid()) + "-" +
                             UUID::random().text() + std::string(temporarySuffix));
}

bool isLeftBehind(const std::filesystem::path& path) {
    const std::string name = path.filename().native();
    if (!name.starts_with(temporaryPrefix) || !name.ends_with(temporarySuffix)) return false;
    // A pipe of that name is none of ours, and must not be waited for.
    const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    struct stat values{};
    if (!file || fstat(file.get(), &values) != 0 || !S_ISREG(values.st_mode)) return false;
    pid_t maker = 0;
    const char* number = name.data() + temporaryPrefix.size();
    const auto [end, failure] = std::from_chars(number, name.data() + name.size(), maker);
    if (failure == std::errc() && *end == '-' && end - number < 8 && maker > 0) {
        if (kill(maker, 0) == 0 || errno != ESRCH) return false;
    } else if (time(nullptr) - values.st_mtim.tv_sec < ageOfALeftover) {
        return false;
    }
    return flock(file.get(), LOCK_EX | LOCK_NB) == 0;
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
    // A file system without locks does without: then the number in the name must do.
    flock(file_.get(), LOCK_EX | LOCK_NB);
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
    UnfinishedFile file(temporaryPathBeside(path), mode);
    file.write(bytes);
    if (durability == Durability::synced) file.sync();
    file.renameTo(path);
    if (durability == Durability::synced) syncFolder(folderOf(path));
}

void syncFolder(const std::filesystem::path& folder) {
    const Descriptor file = openForReading(folder);
    // Some file systems cannot sync a folder and say EINVAL; the name is then as safe as they make it.
    if (uninterrupted([&] { return fsync(file.get()); }) != 0 && errno != EINVAL)
        throw FileError("Could not write", folder, errno);
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

bool FileLock::isHeld(const std::filesystem::path& path) {
    const Descriptor file(uninterrupted([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
    return file && !takeLock(file, path, LOCK_SH | LOCK_NB);
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
