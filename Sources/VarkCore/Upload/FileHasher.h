#pragma once

#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "VarkCore/Foundation/Files.h"

struct evp_md_ctx_st;

namespace vark {

/// SHA-256 of bytes as they come. One thread at a time.
class RunningHash {
  public:
    RunningHash();
    void add(std::span<const char> bytes);
    /// Lower-case; the last thing to ask.
    std::string hexadecimal();

  private:
    std::unique_ptr<evp_md_ctx_st, void (*)(evp_md_ctx_st*)> context_;
};

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
    /// The same of a file that is open, whole, wherever it was read or written last. `path` is for the
    /// `FileError`.
    static std::string sha256Of(const Descriptor& file, const std::filesystem::path& path,
                                const Progress& progress);

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
