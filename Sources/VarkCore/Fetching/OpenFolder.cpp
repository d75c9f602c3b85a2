#include "VarkCore/Fetching/OpenFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string_view>
#include <utility>

namespace vark {
namespace {

constexpr mode_t modeOfFolders = 0777;  // Less what the person's umask takes away.

Descriptor openedAt(int folder, const char* name, int flags, mode_t mode = 0) {
    for (;;) {
        const int descriptor = openat(folder, name, flags | O_CLOEXEC, mode);
        if (descriptor >= 0 || errno != EINTR) return Descriptor(descriptor);
    }
}

}  // namespace

OpenFolder OpenFolder::named(const std::filesystem::path& path) {
    std::error_code failure;
    std::filesystem::create_directories(path, failure);
    if (failure) throw FileError("Could not make the folder", path, failure.value());
    Descriptor folder = openedAt(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY);
    if (!folder) throw FileError("Could not open the folder", path, errno);
    return {std::move(folder), path};
}

OpenFolder OpenFolder::inside(const std::string& name) const {
    if (mkdirat(folder_.get(), name.c_str(), modeOfFolders) != 0 && errno != EEXIST)
        throw FileError("Could not make the folder", pathOf(name), errno);
    Descriptor folder = openedAt(folder_.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    if (folder) return {std::move(folder), pathOf(name)};
    const int reason = errno;
    const std::optional<struct stat> there = look(name);
    throw FileError("Could not make the folder", pathOf(name),
                    there && S_ISLNK(there->st_mode) ? ELOOP : reason);
}

std::optional<struct stat> OpenFolder::look(const std::string& name) const {
    struct stat values{};
    if (fstatat(folder_.get(), name.c_str(), &values, AT_SYMLINK_NOFOLLOW) == 0) return values;
    if (errno == ENOENT) return std::nullopt;
    throw FileError("Could not look at", pathOf(name), errno);
}

Descriptor OpenFolder::tryOpen(const std::string& name, int flags, mode_t mode) const {
    return openedAt(folder_.get(), name.c_str(), flags | O_NOFOLLOW, mode);
}

int OpenFolder::rename(const std::string& from, const std::string& to, unsigned flags) const {
    return renameat2(folder_.get(), from.c_str(), folder_.get(), to.c_str(), flags) == 0 ? 0 : errno;
}

void OpenFolder::remove(const std::string& name) const {
    unlinkat(folder_.get(), name.c_str(), 0);
}

std::vector<std::string> OpenFolder::names() const {
    Descriptor again = openedAt(folder_.get(), ".", O_RDONLY | O_DIRECTORY);
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(again ? fdopendir(again.get()) : nullptr, closedir);
    if (!listing) throw FileError("Could not read the folder", path_, errno);
    again.release();
    std::vector<std::string> names;
    while (const dirent* entry = readdir(listing.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    return names;
}

}  // namespace vark
