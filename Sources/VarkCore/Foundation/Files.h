#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace vark {

/// A failure of the file system, with a finished sentence: what was tried, on which file, and the system's
/// reason.
class FileError : public std::runtime_error {
  public:
    FileError(std::string_view whatWasTried, const std::filesystem::path& path, int errorNumber);
    int errorNumber() const { return errorNumber_; }
    /// Nothing is to be found under that path.
    bool isGone() const;

  private:
    int errorNumber_;
};

/// The owner of one file descriptor. Move-only; closes at its end.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : descriptor_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor() { close(); }

    int get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ >= 0; }
    int release() {
        int descriptor = descriptor_;
        descriptor_ = -1;
        return descriptor;
    }
    void close();

  private:
    int descriptor_ = -1;
};

/// Opens for reading, close-on-exec. Fails with `FileError`.
Descriptor openForReading(const std::filesystem::path& path);
/// The same for a person's file, which may have become anything meanwhile: what is no regular file, nor a
/// link to one, fails at once (a folder with EISDIR, the rest with ENXIO) where opening it could wait for
/// ever.
Descriptor openRegularFile(const std::filesystem::path& path);

/// What tells whether a file is still the one that was looked at.
struct FileStamp {
    /// Bytes.
    std::int64_t size = 0;
    /// Seconds since 1970.
    double mtime = 0;

    /// Times that differ by less than some digits behind the microsecond are one: those may get lost in a
    /// file of ours.
    bool operator==(const FileStamp& other) const;
};
FileStamp stampOf(const struct stat& values);
/// Both fail with `FileError`.
FileStamp stampOf(const Descriptor& file, const std::filesystem::path& path);
FileStamp stampOf(const std::filesystem::path& path);

/// All of the bytes, from where the last ones ended. Fails with `FileError`, for which `path` is.
void writeAll(const Descriptor& file, std::string_view bytes, const std::filesystem::path& path);
/// The whole file as bytes. Fails with `FileError`; a file above `limit` bytes is such a failure (EFBIG).
std::string readWholeFile(const std::filesystem::path& path, std::uint64_t limit = std::uint64_t{4} << 30);

/// A name beside `path` that no person gives a file: for what takes the place of `path` once it is whole.
std::filesystem::path temporaryPathBeside(const std::filesystem::path& path);
/// Whether `path` is of such a name, and its maker was killed before it was whole: no process of its number
/// runs, and nobody holds the lock of an `UnfinishedFile`. When in doubt it is not. (An older maker, which
/// put no number into the name, must have left it alone for an hour.)
bool isLeftBehind(const std::filesystem::path& path);

/// A file in the making, with its mode from its first moment, which goes again unless it was renamed to its
/// place; until then it is locked with `flock`. Used by one thread at a time. All of it fails with
/// `FileError`.
class UnfinishedFile {
  public:
    /// Nothing may stand at `path` yet.
    UnfinishedFile(std::filesystem::path path, mode_t mode);
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;
    ~UnfinishedFile();

    void write(std::string_view bytes);
    /// Forgets all that was written.
    void startOver();
    void sync();
    void renameTo(const std::filesystem::path& path);
    /// It stays under the name that it has.
    void keep() { finished_ = true; }

  private:
    const std::filesystem::path path_;
    Descriptor file_;
    bool finished_ = false;
};

/// Whether the bytes must be on the disk, and not only in the system's cache, before the old file is
/// replaced.
enum class Durability { synced, cached };

/// Writes into a temporary file beside `path`, made with `mode` from the start, and renames it over the old
/// one: a reader sees the old bytes or the new ones whole, and a crash leaves one of them. Fails with
/// `FileError`, and then the temporary file is gone and the old one stands; only when the very last step
/// fails, putting the folder's entry on the disk, the new one does.
void writeAtomically(const std::filesystem::path& path, std::string_view bytes, mode_t mode,
                     Durability durability = Durability::synced);

/// Puts the names of a folder on the disk. Fails with `FileError`.
void syncFolder(const std::filesystem::path& folder);

/// Adds the bytes at the end of the file in one write, so that those of several processes do not mix. The
/// file is made with mode 0600, and its folder too, if need be. Gives whether all bytes were written; never
/// fails.
bool appendInOneWrite(const std::filesystem::path& path, std::string_view bytes);

/// An advisory `flock` on a file, created with mode 0600 if need be. The kernel frees it when the process
/// dies. Move-only; gives the lock back at its end.
class FileLock {
  public:
    /// Waits without a limit. Fails with `FileError` when the file cannot be opened.
    static FileLock exclusive(const std::filesystem::path& path);
    /// Nothing when somebody else holds it. Fails with `FileError` when the file cannot be opened.
    static std::optional<FileLock> tryExclusive(const std::filesystem::path& path);
    /// Whether somebody holds it. Where an attempt that fails closes the file and so is heard by whoever
    /// watches for the lock's end, who would try again for ever, this look is not heard. It may make an
    /// attempt of the same moment fail. A file that cannot be opened is held by nobody.
    static bool isHeld(const std::filesystem::path& path);

    FileLock(FileLock&&) noexcept = default;
    FileLock& operator=(FileLock&& other) noexcept;
    ~FileLock() { unlock(); }

    void unlock();

  private:
    explicit FileLock(Descriptor descriptor) : descriptor_(std::move(descriptor)) {}
    Descriptor descriptor_;
};

}  // namespace vark
