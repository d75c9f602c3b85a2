#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "VarkCore/Foundation/Files.h"

namespace vark {

/// A folder of this machine that is held open: what is done in it is done there and nowhere else, whatever
/// its path leads to by now. Every name is one that `faultOf` lets pass as one component, and no link of that
/// name is ever followed. Any thread. Fails with `FileError`.
class OpenFolder {
  public:
    /// The folder that a person named: made with its parents if need be, links followed.
    static OpenFolder named(const std::filesystem::path& path);
    /// The folder of that name in this one, made if need be. Not a link to one (ELOOP).
    OpenFolder inside(const std::string& name) const;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path pathOf(const std::string& name) const { return path_ / name; }
    /// Of the name itself, also when it is a link; nothing when nothing has that name.
    std::optional<struct stat> look(const std::string& name) const;
    /// As `openat` does, close-on-exec and without following a link; nothing is thrown, the error number is
    /// in `errno`.
    Descriptor tryOpen(const std::string& name, int flags, mode_t mode = 0) const;
    /// The error number of `renameat2`; 0 when it went well.
    int rename(const std::string& from, const std::string& to, unsigned flags) const;
    /// No failure: what cannot be removed stays.
    void remove(const std::string& name) const;
    std::vector<std::string> names() const;

  private:
    OpenFolder(Descriptor folder, std::filesystem::path path)
        : folder_(std::move(folder)), path_(std::move(path)) {}

    Descriptor folder_;
    std::filesystem::path path_;
};

}  // namespace vark
