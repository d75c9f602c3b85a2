#include "VarkCore/Transfer/Walker.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Paths.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Services/Volumes.h"

namespace vark {
namespace {

using Kind = Walker::WalkError::Kind;

constexpr std::array<std::string_view, 7> ignoredNames = {
    ".DS_Store", "Thumbs.db", "desktop.ini", ".Spotlight-V100", ".Trashes", ".fseventsd", ".TemporaryItems"};

bool isHidden(std::string_view name) {
    return name.starts_with('.');
}

std::string sentence(Kind kind, const std::filesystem::path& path) {
    switch (kind) {
        case Kind::notAFile:
            return path.native() + " is not a file or folder that can be sent.";
        case Kind::link:
            return path.native() + " is a link. Name what it leads to instead, or have links followed.";
        case Kind::cannotRead:
            return path.native() + " could not be read.";
        case Kind::nameIsNotText:
            return escapedForTerminal(path.native()) +
                   " has a name that is not UTF-8 text. Rename it, then add it again.";
    }
}

/// A folder on the way down from the root, by what the file system calls it.
struct Ancestor {
    dev_t device;
    ino_t number;
    std::shared_ptr<const Ancestor> parent;

    static bool isAmong(const Ancestor* ancestor, const struct stat& values) {
        for (; ancestor != nullptr; ancestor = ancestor->parent.get())
            if (ancestor->device == values.st_dev && ancestor->number == values.st_ino) return true;
        return false;
    }
};

/// Lists folder after folder below a root, each by its path from there, so that a deep tree takes no more
/// open files than a flat one.
class FolderWalk {
  public:
    FolderWalk(const std::filesystem::path& root, std::string_view rootName, Walker::Options options,
               const std::stop_token& stop)
        : root_(root),
          prefix_(rootName.empty() ? "" : std::string(rootName) + "/"),
          options_(std::move(options)),
          stop_(stop) {}

    void run(Walker::Result& result) {
        rootFolder_ = Descriptor(open(root_.c_str(), O_RDONLY | O_DIRECTORY | whetherToFollow() | O_CLOEXEC));
        if (!rootFolder_ || list({"", nullptr}) == Listing::failed)
            throw Walker::WalkError(Kind::cannotRead, root_);
        while (!waiting_.empty()) {
            const Folder folder = std::move(waiting_.back());
            waiting_.pop_back();
            const std::string_view path = std::string_view(folder.path).substr(0, folder.path.size() - 1);
            switch (list(folder)) {
                case Listing::whole:
                    break;
                case Listing::empty:
                    passOver("", path, Passed::emptyFolder);
                    break;
                case Listing::failed:
                    passOver("", path, Passed::unreadable);
                    break;
            }
        }
        result.files = std::move(found_);
        std::ranges::sort(passedOver_, {}, &Walker::PassedOver::relativePath);
        result.passedOver = std::move(passedOver_);
    }

  private:
    using Passed = Walker::PassedOver::Kind;
    enum class Listing : std::uint8_t { whole, empty, failed };

    struct Folder {
        /// "" or a path below the root that ends in "/".
        std::string path;
        /// Of its parent; kept only where links are followed.
        std::shared_ptr<const Ancestor> parent;
    };

    struct CloseDirectory {
        void operator()(DIR* directory) const { closedir(directory); }
    };

    int whetherToFollow() const { return options_.followLinks ? 0 : O_NOFOLLOW; }

    /// Fails when we have run out of something, or files would be left out unseen; what cannot be read for a
    /// reason of its own is an answer.
    Listing list(const Folder& folder) {
        const std::string path = folder.path.empty() ? "." : folder.path.substr(0, folder.path.size() - 1);
        Descriptor descriptor(
            openat(rootFolder_.get(), path.c_str(), O_RDONLY | O_DIRECTORY | whetherToFollow() | O_CLOEXEC));
        if (!descriptor) {
            const int failure = errno;
            if (failure == EMFILE || failure == ENFILE || failure == ENOMEM || failure == ENAMETOOLONG) {
                throw FileError("Could not read", root_ / path, failure);
            }
            return Listing::failed;
        }
        here_.reset();
        if (options_.followLinks) {
            struct stat values{};
            if (fstat(descriptor.get(), &values) != 0) throw FileError("Could not read", root_ / path, errno);
            here_ = std::make_shared<const Ancestor>(values.st_dev, values.st_ino, folder.parent);
        }
        const std::unique_ptr<DIR, CloseDirectory> directory(fdopendir(descriptor.get()));
        if (!directory) throw FileError("Could not read", root_ / path, errno);
        descriptor.release();
        Listing listing = Listing::empty;
        while (true) {
            if (stop_.stop_requested()) throw CancellationError();
            errno = 0;
            const dirent* entry = readdir(directory.get());
            if (entry == nullptr) return errno == 0 ? listing : Listing::failed;
            const std::string_view name(entry->d_name);
            if (name == "." || name == "..") continue;
            listing = Listing::whole;
            visit(dirfd(directory.get()), folder.path, *entry);
        }
    }

    void visit(int directory, const std::string& folder, const dirent& entry) {
        const std::string_view name(entry.d_name);
        if (isExcluded(directory, folder, entry)) return passOver(folder, name, Passed::excluded);
        if (Walker::isIgnored(name)) return passOver(folder, name, Passed::ignored);
        if (isHidden(name) && !options_.hidden) return passOver(folder, name, Passed::hidden);
        if (!isUTF8(name)) return passOver(folder, name, Passed::nameIsNotText);
        // Some file systems do not say what an entry is, and then its values must.
        if (entry.d_type == DT_DIR) return addFolder(folder, name);
        struct stat values{};
        if (entry.d_type == DT_REG || entry.d_type == DT_UNKNOWN) {
            if (fstatat(directory, entry.d_name, &values, AT_SYMLINK_NOFOLLOW) != 0) {
                throw FileError("Could not read", pathOf(folder, name), errno);
            }
        } else {
            values.st_mode = static_cast<mode_t>(DTTOIF(entry.d_type));
        }
        if (S_ISLNK(values.st_mode)) {
            const bool leadsToSomethingNew = options_.followLinks &&
                                             fstatat(directory, entry.d_name, &values, 0) == 0 &&
                                             !Ancestor::isAmong(here_.get(), values);
            if (!leadsToSomethingNew) return passOver(folder, name, Passed::link);
        }
        if (S_ISDIR(values.st_mode)) return addFolder(folder, name);
        if (!S_ISREG(values.st_mode)) return passOver(folder, name, Passed::special);
        found_.push_back({relativePath(folder, name), values.st_size, stampOf(values).mtime});
    }

    bool isExcluded(int directory, const std::string& folder, const dirent& entry) const {
        if (options_.filter.isEmpty()) return false;
        const std::string path = folder + entry.d_name;
        return isFolder(directory, entry) ? options_.filter.leavesOutFolder(path)
                                          : options_.filter.leavesOutFile(path);
    }

    bool isFolder(int directory, const dirent& entry) const {
        const bool mayBe = entry.d_type == DT_UNKNOWN || (entry.d_type == DT_LNK && options_.followLinks);
        if (!mayBe) return entry.d_type == DT_DIR;
        struct stat values{};
        const int flags = options_.followLinks ? 0 : AT_SYMLINK_NOFOLLOW;
        return fstatat(directory, entry.d_name, &values, flags) == 0 && S_ISDIR(values.st_mode);
    }

    void addFolder(const std::string& folder, std::string_view name) {
        std::string path;
        path.reserve(folder.size() + name.size() + 1);
        path.append(folder).append(name).append("/");
        waiting_.push_back({std::move(path), here_});
    }

    void passOver(const std::string& folder, std::string_view name, Passed kind) {
        std::string path = relativePath(folder, name);
        passedOver_.push_back({isUTF8(name) ? std::move(path) : escapedForTerminal(path), kind});
    }

    std::string relativePath(const std::string& folder, std::string_view name) const {
        std::string path;
        path.reserve(prefix_.size() + folder.size() + name.size());
        path.append(prefix_).append(folder).append(name);
        return path;
    }

    std::filesystem::path pathOf(const std::string& folder, std::string_view name) const {
        return root_ / (folder + std::string(name));
    }

    const std::filesystem::path& root_;
    const std::string prefix_;
    const Walker::Options options_;
    const std::stop_token& stop_;
    Descriptor rootFolder_;
    std::shared_ptr<const Ancestor> here_;  // The folder that is being listed, where links are followed.
    std::vector<Folder> waiting_;
    std::vector<Walker::Found> found_;
    std::vector<Walker::PassedOver> passedOver_;
};

void sortNaturally(std::vector<Walker::Found>& files) {
    struct Place {
        std::string key;
        std::size_t index;
    };
    const NaturalOrder order;
    std::vector<Place> places;
    places.reserve(files.size());
    for (std::size_t index = 0; index < files.size(); ++index) {
        places.push_back({order.key(files[index].relativePath), index});
    }
    std::ranges::sort(places, [&](const Place& left, const Place& right) {
        if (const int difference = left.key.compare(right.key); difference != 0) return difference < 0;
        return files[left.index].relativePath < files[right.index].relativePath;
    });
    std::vector<Walker::Found> sorted;
    sorted.reserve(files.size());
    for (const Place& place : places)
        sorted.push_back(std::move(files[place.index]));
    files = std::move(sorted);
}

}  // namespace

Walker::WalkError::WalkError(Kind kind, const std::filesystem::path& path)
    : std::runtime_error(sentence(kind, path)), kind_(kind), path_(path.native()) {}

std::int64_t Walker::Result::totalBytes() const {
    std::int64_t total = 0;
    for (const Found& file : files)
        total += file.size;
    return total;
}

bool Walker::isIgnored(std::string_view name) {
    return name.starts_with("._") || std::ranges::find(ignoredNames, name) != ignoredNames.end();
}

std::optional<std::string> Walker::volumeName(const std::filesystem::path& path, const Volumes& volumes) {
    return volumes.volumeName(path);
}

Walker::Result Walker::walk(const std::filesystem::path& path, const Volumes& volumes, Options options,
                            const std::stop_token& stop) {
    const std::filesystem::path root = standardised(path);
    struct stat values{};
    if (fstatat(AT_FDCWD, root.c_str(), &values, options.followLinks ? 0 : AT_SYMLINK_NOFOLLOW) != 0) {
        throw FileError("Could not read", root, errno);
    }
    if (S_ISLNK(values.st_mode)) throw WalkError(Kind::link, root);
    if (!S_ISDIR(values.st_mode) && !S_ISREG(values.st_mode)) throw WalkError(Kind::notAFile, root);
    if (!isUTF8(root.native())) throw WalkError(Kind::nameIsNotText, root);

    const std::string name = root.filename().native();
    Result result;
    result.volumeName = volumeName(root, volumes);
    result.isFolder = S_ISDIR(values.st_mode);
    if (!result.isFolder && options.filter.leavesOutFile(name)) {
        result.passedOver.push_back({name, PassedOver::Kind::excluded});
        return result;
    }
    if (!result.isFolder) {
        result.files.push_back({name, values.st_size, stampOf(values).mtime});
        return result;
    }
    FolderWalk(root, name, std::move(options), stop).run(result);
    sortNaturally(result.files);
    return result;
}

}  // namespace vark
