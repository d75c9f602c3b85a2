#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace vark {

/// Moves files and whole folders to where a rename does not reach: copies them, and once the copies are on
/// the disk removes exactly what was copied and is still as it was. What cannot be copied, what changes
/// meanwhile and what comes into a folder stays, and is told. For one thread, which it blocks.
class CarryAcross {
  public:
    /// Something that stays where it was.
    struct Left {
        std::filesystem::path path;
        /// A finished sentence that names it.
        std::string why;
        bool operator==(const Left&) const = default;
    };

    /// Makes a copy at `to`, where nothing may stand, with modes and times.
    void copy(const std::filesystem::path& from, const std::filesystem::path& to);
    /// `folder` is where all copies lie. Without the certainty that they are on the disk nothing is removed.
    void removeWhatWasCopied(const std::filesystem::path& folder);

    const std::vector<Left>& left() const { return left_; }
    bool leaves(const std::filesystem::path& folder) const;
    void leave(const std::filesystem::path& path, std::string why);

  private:
    struct Copied {
        std::filesystem::path path;
        struct stat values;
    };

    void copyFile(const std::filesystem::path& from, const std::filesystem::path& to) const;
    void copyMembers(const std::filesystem::path& from, const std::filesystem::path& to);
    void removeOne(const Copied& one);
    bool removed(const std::filesystem::path& path, int flags);

    /// A folder after all that is in it.
    std::vector<Copied> copied_;
    std::vector<Left> left_;
    /// The modes of folders that were made writable for their members to go.
    std::map<std::filesystem::path, mode_t> modes_;
};

}  // namespace vark
