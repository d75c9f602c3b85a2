#include "VarkCore/Transfer/Walker.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

#include "VarkCore/Foundation/Files.h"
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
        case Kind::cannotRead:
            return path.native() + " could not be read.";
        case Kind::nameIsNotText:
            return escapedForTerminal(path.native()) +
                   " has a name that is not UTF-8 text. Rename it, then add it again.";
    }
}

/// Absolute, without dots and without a "/" at its end, which would lead through a link.
std::filesystem::path standardised(const std::filesystem::path& path) {
    const std::filesystem::path normal = std::filesystem::absolute(path).lexically_normal();
    return normal.has_filename() ? normal : normal.parent_path();
}

double secondsSince1970(const timespec& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// Lists folder after folder below a root, each by its path from there, so that a deep tree takes no more
/// open files than a flat one.
class FolderWalk {
  public:
    FolderWalk(const std::filesystem::path& root, std::string_view rootName)
        : root_(root), prefix_(rootName.empty() ? "" : std::string(rootName) + "/") {}

    void run(Walker::Result& result) {
        rootFolder_ = Descriptor(open(root_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!rootFolder_ || !list("")) throw Walker::WalkError(Kind::cannotRead, root_);
        while (!waiting_.empty()) {
            const std::string folder = std::move(waiting_.back());
            waiting_.pop_back();
            // What a file system keeps for itself is nobody's.
            if (!list(folder) && folder != "lost+found/")
                result.unlisted.push_back(prefix_ + folder.substr(0, folder.size() - 1));
        }
        result.files = std::move(found_);
    }

  private:
    struct CloseDirectory {
        void operator()(DIR* directory) const { closedir(directory); }
    };

    /// `folder` is "" or a path below the root that ends in "/". False when it cannot be read for a reason of
    /// its own; that we have run out of something is a failure of the walk, or files would be left out
    /// unseen.
    bool list(const std::string& folder) {
        const std::string path = folder.empty() ? "." : folder.substr(0, folder.size() - 1);
        Descriptor descriptor(
            openat(rootFolder_.get(), path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!descriptor) {
            const int failure = errno;
            if (failure == EMFILE || failure == ENFILE || failure == ENOMEM || failure == ENAMETOOLONG) {
                throw FileError("Could not read", root_ / path, failure);
            }
            return false;
        }
        const std::unique_ptr<DIR, CloseDirectory> directory(fdopendir(descriptor.get()));
        if (!directory) throw FileError("Could not read", root_ / path, errno);
        descriptor.release();
        while (true) {
            errno = 0;
            const dirent* entry = readdir(directory.get());
            if (entry == nullptr) return errno == 0;
            visit(dirfd(directory.get()), folder, *entry);
        }
    }

    void visit(int directory, const std::string& folder, const dirent& entry) {
        const std::string_view name(entry.d_name);
        if (isHidden(name) || Walker::isIgnored(name)) return;
        // Some file systems do not say what an entry is, and then its values must.
        if (entry.d_type == DT_DIR) {
            addFolder(folder, name);
            return;
        }
        if (entry.d_type != DT_REG && entry.d_type != DT_UNKNOWN) return;
        struct stat values{};
        if (fstatat(directory, entry.d_name, &values, AT_SYMLINK_NOFOLLOW) != 0) {
            throw FileError("Could not read", pathOf(folder, name), errno);
        }
        if (S_ISDIR(values.st_mode)) {
            addFolder(folder, name);
            return;
        }
        if (!S_ISREG(values.st_mode)) return;
        requireText(folder, name);
        std::string relativePath;
        relativePath.reserve(prefix_.size() + folder.size() + name.size());
        relativePath.append(prefix_).append(folder).append(name);
        found_.push_back({std::move(relativePath), values.st_size, secondsSince1970(values.st_mtim)});
    }

    void addFolder(const std::string& folder, std::string_view name) {
        requireText(folder, name);
        std::string path;
        path.reserve(folder.size() + name.size() + 1);
        path.append(folder).append(name).append("/");
        waiting_.push_back(std::move(path));
    }

    void requireText(const std::string& folder, std::string_view name) const {
        if (!isUTF8(name)) throw Walker::WalkError(Kind::nameIsNotText, pathOf(folder, name));
    }

    std::filesystem::path pathOf(const std::string& folder, std::string_view name) const {
        return root_ / (folder + std::string(name));
    }

    const std::filesystem::path& root_;
    const std::string prefix_;
    Descriptor rootFolder_;
    std::vector<std::string> waiting_;
    std::vector<Walker::Found> found_;
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

Walker::Result Walker::walk(const std::filesystem::path& path, const Volumes& volumes) {
    const std::filesystem::path root = standardised(path);
    struct stat values{};
    if (lstat(root.c_str(), &values) != 0) throw FileError("Could not read", root, errno);
    if (!S_ISDIR(values.st_mode) && !S_ISREG(values.st_mode)) throw WalkError(Kind::notAFile, root);
    if (!isUTF8(root.native())) throw WalkError(Kind::nameIsNotText, root);

    const std::string name = root.filename().native();
    Result result;
    result.volumeName = volumeName(root, volumes);
    result.isFolder = S_ISDIR(values.st_mode);
    if (!result.isFolder) {
        result.files.push_back({name, values.st_size, secondsSince1970(values.st_mtim)});
        return result;
    }
    FolderWalk(root, name).run(result);
    sortNaturally(result.files);
    return result;
}

}  // namespace vark
