#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Transfer/PathFilter.h"

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

    /// Something that lies in the folder and is not among the files.
    struct PassedOver {
        enum class Kind : std::uint8_t {
            /// `isIgnored` says so.
            ignored,
            /// Its name begins with a dot. Of a hidden folder the contents are not looked at.
            hidden,
            link,
            /// A pipe, a socket or a device.
            special,
            emptyFolder,
            /// A folder that could not be listed, or not to its end.
            unreadable,
            /// Its name is not UTF-8 text. Of such a folder the contents are not looked at.
            nameIsNotText,
            /// The person did not want it. Of such a folder the contents are not looked at.
            excluded
        };

        /// As in `Found`; bytes that are no text stand escaped.
        std::string relativePath;
        Kind kind = Kind::ignored;

        bool operator==(const PassedOver&) const = default;
    };

    struct Result {
        bool isFolder = false;
        /// In the order in which a file browser lists them.
        std::vector<Found> files;
        std::optional<std::string> volumeName;
        /// All that is in the folder beside `files`, by path.
        std::vector<PassedOver> passedOver;

        std::int64_t totalBytes() const;
    };

    /// What a person may ask for beyond what is sent by itself.
    struct Options {
        bool hidden = false;
        /// What a link leads to is sent in its place; a link that leads nowhere, or into a folder that it
        /// lies in, is still passed over.
        bool followLinks = false;
        /// Of what is walked, below it; of a file that is walked by itself, its name.
        PathFilter filter{};

        bool operator==(const Options&) const = default;
    };

    class WalkError : public std::runtime_error {
      public:
        enum class Kind : std::uint8_t { notAFile, link, cannotRead, nameIsNotText };

        WalkError(Kind kind, const std::filesystem::path& path);
        Kind kind() const { return kind_; }
        const std::string& path() const { return path_; }

      private:
        Kind kind_;
        std::string path_;
    };

    /// A folder below that cannot be listed costs its own contents and no more. Fails with `WalkError`, with
    /// `FileError` when a file's values cannot be read, and with `CancellationError` once `stop` is asked
    /// for.
    static Result walk(const std::filesystem::path& path, const Volumes& volumes, Options options,
                       const std::stop_token& stop);
    static Result walk(const std::filesystem::path& path, const Volumes& volumes) {
        return walk(path, volumes, Options(), std::stop_token());
    }
    /// A name that is never sent.
    static bool isIgnored(std::string_view name);
    static std::optional<std::string> volumeName(const std::filesystem::path& path, const Volumes& volumes);
};

}  // namespace vark
