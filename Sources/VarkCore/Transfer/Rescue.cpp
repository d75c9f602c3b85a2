#include "VarkCore/Transfer/Rescue.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <vector>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Services/UserFolders.h"
#include "VarkCore/Transfer/Format.h"

namespace vark {
namespace {

namespace fs = std::filesystem;

constexpr int lastNumber = 99;

fs::path freeName(const fs::path& in, const std::string& name) {
    fs::path free = in / name;
    for (int number = 2; number <= lastNumber && fs::exists(fs::symlink_status(free)); ++number)
        free = in / fmt::format("{} {}", name, number);
    return free;
}

std::vector<fs::path> membersOf(const fs::path& folder) {
    std::vector<fs::path> members;
    std::error_code failure;
    fs::directory_iterator place(folder, failure);
    for (const fs::directory_iterator end; !failure && place != end; place.increment(failure))
        members.push_back(place->path());
    if (failure) throw FileError("Could not read", folder, failure.value());
    return members;
}

void make(const fs::path& folder) {
    std::error_code failure;
    fs::create_directories(folder, failure);
    if (failure) throw FileError("Could not create", folder, failure.value());
}

}  // namespace

std::string Rescue::Kept::sentence() const {
    if (folder.empty()) return "Nothing could be moved, and all of it stays where it is.";
    return fmt::format("{} {} now in {}.", Format::count(files, "file"), files == 1 ? "is" : "are",
                       escapedForTerminal(folder.native()));
}

fs::path Rescue::downloads(const UserFolders& folders) {
    return folders.downloads().value_or(folders.home() / "Downloads");
}

std::string Rescue::folderName(Date date, const Calendar& calendar) {
    return "Vark – not sent yet " + calendar.format(date, "d MMM yyyy");
}

bool Rescue::rename(const fs::path& from, const fs::path& to) {
    // What has come meanwhile must not be overwritten. A file system that cannot promise it says EINVAL.
    return renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0;
}

std::optional<Rescue::Kept> Rescue::keep(const fs::path& from, const fs::path& in, Date date,
                                         const Calendar& calendar, const Mover& move) {
    const std::vector<fs::path> members = membersOf(from);
    if (members.empty()) {
        rmdir(from.c_str());
        return std::nullopt;
    }
    const fs::path folder = freeName(in, folderName(date, calendar));
    make(folder);
    CarryAcross across;
    for (const fs::path& member : members) {
        const fs::path to = folder / member.filename();
        if (!move(member, to)) across.copy(member, to);
    }
    across.removeWhatWasCopied(folder);
    if (rmdir(from.c_str()) != 0 && errno == ENOTEMPTY && !across.leaves(from))
        across.leave(from, fmt::format("Something came into {} meanwhile, and stays there.",
                                       escapedForTerminal(from.native())));
    if (rmdir(folder.c_str()) == 0) return Kept{{}, 0, 0, across.left()};
    const Count counted = count(folder);
    return Kept{folder, counted.files, counted.bytes, across.left()};
}

Rescue::Count Rescue::count(const fs::path& folder) {
    Count count;
    std::error_code failure;
    fs::recursive_directory_iterator place(folder, fs::directory_options::skip_permission_denied, failure);
    for (const fs::recursive_directory_iterator end; !failure && place != end; place.increment(failure)) {
        std::error_code gone;
        if (!fs::is_regular_file(place->symlink_status(gone))) continue;
        const std::uintmax_t size = place->file_size(gone);
        if (gone) continue;
        ++count.files;
        count.bytes += static_cast<std::int64_t>(size);
    }
    return count;
}

}  // namespace vark
