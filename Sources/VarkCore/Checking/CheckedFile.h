#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Upload/ContentHash.h"

namespace vark {

/// What a file here is to the vark. A value.
struct CheckedFile {
    enum class Verdict : std::uint8_t {
        /// The vark has these very bytes at that place, and they lay here when the check ended.
        same,
        missing,
        differs,
        unreadable,
        changed,
        /// Nobody can tell: no file that is sent, or one that the vark has no checksum of.
        unproved
    };
    /// For programs.
    static constexpr std::array<std::string_view, 6> verdictNames = {"same",       "missing", "differs",
                                                                     "unreadable", "changed", "unproved"};

    /// Below the folder of the vark: begins with the name of what the person named.
    std::string path;
    std::string localPath;
    std::int64_t size = 0;
    Verdict verdict = Verdict::unproved;
    /// A finished sentence; empty for `same`.
    std::string why{};

    bool operator==(const CheckedFile&) const = default;
};

/// What the vark said of the place of a file.
struct VarkSide {
    bool isFolder = false;
    std::int64_t size = 0;
    /// Nothing while the vark has not checked it.
    std::optional<ContentHash> sha256{};
    /// Two things of that name came in one list.
    bool isAmbiguous = false;
};

/// What a file here was when it was read.
struct LocalSide {
    std::optional<ContentHash> sha256{};
    FileStamp stamp{};
    /// Why it could not be read; a finished sentence.
    std::string failure{};
    bool neverStoodStill = false;
};

/// The verdict with its reason. `now` is what the file was when everything had been looked at; nothing when
/// it was no longer there.
std::pair<CheckedFile::Verdict, std::string> judge(const std::optional<VarkSide>& vark, const LocalSide& here,
                                                   const std::optional<FileStamp>& now);

}  // namespace vark
