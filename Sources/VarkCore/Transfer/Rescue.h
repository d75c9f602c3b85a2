#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "VarkCore/Foundation/Time/Calendar.h"
#include "VarkCore/Foundation/Time/Date.h"
#include "VarkCore/Transfer/CarryAcross.h"

namespace vark {

class UserFolders;

/// Keeps files that have not been sent from going away with their folder: they are moved to a dated folder in
/// the person's Downloads. Functions only; blocks its thread for as long as the moving takes.
struct Rescue {
    struct Kept {
        /// Empty when nothing could be moved.
        std::filesystem::path folder;
        std::int64_t files = 0;
        std::int64_t bytes = 0;
        /// What stays where it was, since it could not be moved, has changed, or came meanwhile.
        std::vector<CarryAcross::Left> left{};

        /// For the person; of what has been moved.
        std::string sentence() const;
        bool operator==(const Kept&) const = default;
    };
    struct Count {
        std::int64_t files = 0;
        std::int64_t bytes = 0;
        bool operator==(const Count&) const = default;
    };
    /// Moves a file or a whole folder to where nothing stands. Answers false when that cannot be done in one
    /// step, as across volumes; what is there is never replaced.
    using Mover = std::function<bool(const std::filesystem::path& from, const std::filesystem::path& to)>;

    static std::filesystem::path downloads(const UserFolders& folders);
    /// "Vark – not sent yet 3 Mar 2025"
    static std::string folderName(Date date, const Calendar& calendar);
    /// Empties `from` into a new folder in `in`, and removes it when nothing is left in it. Nothing when
    /// there was nothing to keep. Fails with `FileError` when `from` cannot be listed or the new folder
    /// cannot be made, and then nothing has been moved.
    static std::optional<Kept> keep(const std::filesystem::path& from, const std::filesystem::path& in,
                                    Date date, const Calendar& calendar, const Mover& move = rename);
    /// The regular files at any depth.
    static Count count(const std::filesystem::path& folder);

    static bool rename(const std::filesystem::path& from, const std::filesystem::path& to);
};

}  // namespace vark
