#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace vark {

class Volumes;

/// Turns one path that a person gave into the list of files to send. Functions only; blocks its thread for as
/// long as the folder takes to list, and opens no file.
struct Walker {
    struct Found {
        /// Begins with the name of what was walked; "/" separated.
        std::string relativePath;
        /// Bytes.
        std::int64_t size = 0;
        /// Seconds since 1970.
        double mtime = 0;

        bool operator==(const Found&) const = default;
    };

    struct Result {
        bool isFolder = false;
        /// In the order in which a file browser lists them.
        std::vector<Found> files;
        std::optional<std::string> volumeName;
        /// Folders below that could not be listed, or not to their end, as relative paths. What is in them is
        /// missing from `files`.
        std::vector<std::string> unlisted;

        std::int64_t totalBytes() const;
    };

    class WalkError : public std::runtime_error {
      public:
        enum class Kind : std::uint8_t { notAFile, cannotRead, nameIsNotText };

        WalkError(Kind kind, const std::filesystem::path& path);
        Kind kind() const { return kind_; }
        const std::string& path() const { return path_; }

      private:
        Kind kind_;
        std::string path_;
    };

    /// A folder below that cannot be listed costs its own contents and no more. Links, hidden names and
    /// ignored ones are passed over. Fails with `WalkError`, or with `FileError` when a file's values cannot
    /// be read.
    static Result walk(const std::filesystem::path& path, const Volumes& volumes);
    /// A name that is never sent.
    static bool isIgnored(std::string_view name);
    static std::optional<std::string> volumeName(const std::filesystem::path& path, const Volumes& volumes);
};

}  // namespace vark
