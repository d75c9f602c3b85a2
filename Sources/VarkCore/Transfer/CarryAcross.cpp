#include "VarkCore/Transfer/CarryAcross.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Paths.h"
#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t pieceLength = 1 << 20;
constexpr mode_t permissions = 0777;

std::string shown(const fs::path& path) {
    return escapedForTerminal(path.native());
}

bool isSame(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino &&
           (one.st_mode & S_IFMT) == (other.st_mode & S_IFMT) &&
           (S_ISDIR(one.st_mode) ||
            (one.st_size == other.st_size && one.st_mtim.tv_sec == other.st_mtim.tv_sec &&
             one.st_mtim.tv_nsec == other.st_mtim.tv_nsec));
}

/// The times tell a person when a picture was taken. That a file system keeps none is no loss of bytes.
void giveModeAndTime(const fs::path& to, const struct stat& values) {
    if (!S_ISLNK(values.st_mode)) chmod(to.c_str(), values.st_mode & permissions);
    const struct timespec times[] = {values.st_atim, values.st_mtim};
    utimensat(AT_FDCWD, to.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

void copyLink(const fs::path& from, const fs::path& to) {
    std::error_code failure;
    fs::copy_symlink(from, to, failure);
    if (failure) throw FileError("Could not copy", from, failure.value());
}

}  // namespace

void CarryAcross::leave(const fs::path& path, std::string why) {
    left_.push_back({path, std::move(why)});
}

bool CarryAcross::leaves(const fs::path& folder) const {
    return std::ranges::any_of(left_, [&](const Left& one) { return liesIn(one.path, folder); });
}

void CarryAcross::copy(const fs::path& from, const fs::path& to) {
    try {
        struct stat values{};
        if (lstat(from.c_str(), &values) != 0) throw FileError("Could not read", from, errno);
        if (S_ISREG(values.st_mode)) {
            copyFile(from, to);
        } else if (S_ISLNK(values.st_mode)) {
            copyLink(from, to);
        } else if (S_ISDIR(values.st_mode)) {
            // Ours alone until it is whole, and writable whatever it will be then.
            if (mkdir(to.c_str(), S_IRWXU) != 0) throw FileError("Could not create", to, errno);
            copyMembers(from, to);
        } else {
            return leave(from, shown(from) + " is a pipe, a socket or a device, and stays where it is.");
        }
        giveModeAndTime(to, values);
        copied_.push_back({from, values});
    } catch (const FileError& error) {
        leave(from, error.what());
    }
}

void CarryAcross::copyFile(const fs::path& from, const fs::path& to) const {
    const Descriptor source(open(from.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!source) throw FileError("Could not read", from, errno);
    UnfinishedFile copy(to, S_IRUSR | S_IWUSR);
    std::string piece(pieceLength, '\0');
    while (true) {
        const ssize_t got = read(source.get(), piece.data(), piece.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw FileError("Could not read", from, errno);
        if (got == 0) break;
        copy.write(std::string_view(piece).substr(0, static_cast<std::size_t>(got)));
    }
    copy.keep();
}

void CarryAcross::copyMembers(const fs::path& from, const fs::path& to) {
    std::error_code failure;
    fs::directory_iterator place(from, failure);
    for (const fs::directory_iterator end; !failure && place != end; place.increment(failure))
        copy(place->path(), to / place->path().filename());
    if (failure) leave(from, FileError("Could not read", from, failure.value()).what());
}

void CarryAcross::removeWhatWasCopied(const fs::path& folder) {
    // The copies must outlive a power cut before the only other ones go.
    const Descriptor place(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!place || syncfs(place.get()) != 0) {
        const FileError error("Could not store", folder, errno);
        for (const Copied& one : copied_)
            leave(one.path, error.what());
    } else {
        for (const Copied& one : copied_)
            removeOne(one);
    }
    copied_.clear();
}

void CarryAcross::removeOne(const Copied& one) {
    struct stat now{};
    if (lstat(one.path.c_str(), &now) != 0 && errno == ENOENT) return;
    if (!isSame(now, one.values))
        return leave(one.path, shown(one.path) + " changed while it was copied, and stays where it is too.");
    const bool isFolder = S_ISDIR(now.st_mode);
    if (removed(one.path, isFolder ? AT_REMOVEDIR : 0)) return;
    const int failure = errno;
    if (const auto mode = modes_.find(one.path); mode != modes_.end()) {
        chmod(one.path.c_str(), mode->second);
    }
    if (isFolder && (failure == ENOTEMPTY || failure == EEXIST)) {
        // What stays in it has been told, or came after it was listed.
        if (!leaves(one.path))
            leave(one.path,
                  fmt::format("Something came into {} meanwhile, and stays there.", shown(one.path)));
        return;
    }
    leave(one.path, FileError("Could not remove", one.path, failure).what());
}

/// From a folder that may only be read nothing goes; since this one is to go itself, it is made writable.
bool CarryAcross::removed(const fs::path& path, int flags) {
    if (unlinkat(AT_FDCWD, path.c_str(), flags) == 0) return true;
    if (errno != EACCES) return false;
    const fs::path folder = path.parent_path();
    struct stat values{};
    if (stat(folder.c_str(), &values) != 0 || (values.st_mode & S_IWUSR) != 0 ||
        chmod(folder.c_str(), (values.st_mode & permissions) | S_IRWXU) != 0) {
        errno = EACCES;
        return false;
    }
    modes_.emplace(folder, values.st_mode & permissions);
    return unlinkat(AT_FDCWD, path.c_str(), flags) == 0;
}

}  // namespace vark
