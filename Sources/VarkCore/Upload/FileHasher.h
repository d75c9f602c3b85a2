#pragma once

#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "VarkCore/Foundation/Files.h"

namespace vark {

/// SHA-256 as lower-case hexadecimal. Functions only; any thread.
struct FileHasher {
    /// The progress callback asked for the end.
    struct Cancelled : std::exception {
        const char* what() const noexcept override { return "The hashing was stopped."; }
    };

    /// Told the bytes hashed so far; false stops the work.
    using Progress = std::function<bool(std::int64_t)>;

    static std::string sha256(std::string_view data);
    /// Blocks its thread for the length of the file and holds one piece of 1 MiB; `progress` is called on
    /// this thread after each piece, and is the only way to stop it. Fails with `FileError` or `Cancelled`.
    static std::string sha256Of(const std::filesystem::path& file, const Progress& progress = nullptr);

    /// What stood in a file at one moment.
    struct Look {
        std::string sha256;
        FileStamp stamp;
    };
    /// The same for a file that somebody may still be writing: the hash is of as many bytes as the stamp
    /// says, and a file that changes meanwhile is hashed again, so `progress` may fall back to the beginning.
    /// One that never stands still gives its last look, which its stamp tells from what lies there
    /// afterwards.
    static Look lookAt(const std::filesystem::path& file, const Progress& progress = nullptr);
};

}  // namespace vark
