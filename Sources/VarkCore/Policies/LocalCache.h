#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace vark {

/// How much room this program takes on the machine, and the giving back of it. Functions only, on places that
/// the caller names; they block their thread for as long as the folders take to list.
struct LocalCache {
    struct Place {
        std::string name;
        /// A folder or a file.
        std::filesystem::path url;
        /// Names directly inside the folder that are never removed.
        std::set<std::string> keep{};
    };
    struct Line {
        std::string name;
        std::int64_t bytes = 0;
        bool operator==(const Line&) const = default;
    };
    struct Report {
        std::vector<Line> lines;

        std::int64_t total() const;
        bool isEmpty() const { return total() == 0; }
        std::string describe() const;
        bool operator==(const Report&) const = default;
    };
    struct Freed {
        std::int64_t bytes = 0;
        /// The names of what was not removed.
        std::vector<std::string> left;

        std::string describe() const;
        bool operator==(const Freed&) const = default;
    };
    /// Whether something directly in a place is being used. A folder in use is kept whole.
    using InUse = std::function<bool(const std::filesystem::path&)>;

    /// Places that take no room are left out.
    static Report measure(const std::vector<Place>& places);
    /// Empties the places that are folders.
    static Freed evict(const std::vector<Place>& places, const InUse& inUse);
    /// The room of the files directly in the folders that somebody was killed in the making of.
    static std::int64_t sizeOfLeftovers(const std::vector<std::filesystem::path>& folders);
    /// Removes them, and answers the room that they took. Never fails: what does not go, stays.
    static std::int64_t sweep(const std::vector<std::filesystem::path>& folders);
    /// What freeing it would give back: the room that the regular files take on the disk.
    static std::int64_t size(const std::filesystem::path& url);
};

}  // namespace vark
