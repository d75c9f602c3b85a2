#include "VarkCore/Transfer/Rescue.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "VarkCore/Foundation/Files.h"
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

/// With the times of the files, which tell a person when a picture was taken.
void copyWhole(const fs::path& from, const fs::path& to) {
    const fs::file_status status = fs::symlink_status(from);
    if (fs::is_symlink(status)) {
        fs::copy_symlink(from, to);
        return;
    }
    if (fs::is_directory(status)) {
        fs::create_directory(to, from);
        for (const fs::directory_entry& member : fs::directory_iterator(from))
            copyWhole(member.path(), to / member.path().filename());
    } else {
        fs::copy(from, to);
    }
    std::error_code ignored;
    const fs::file_time_type time = fs::last_write_time(from, ignored);
    if (!ignored) fs::last_write_time(to, time, ignored);
}

/// The copies must outlive a power cut before the only other ones go.
void waitUntilStored(const fs::path& folder) {
    const Descriptor place(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!place || syncfs(place.get()) != 0)
        throw fs::filesystem_error("Could not store", folder, std::error_code(errno, std::system_category()));
}

void carry(const fs::path& from, const fs::path& to, const Rescue::Mover& move) {
    // A move would overwrite what stands there.
    if (fs::exists(fs::symlink_status(to)))
        throw fs::filesystem_error("Could not move", from, to, std::make_error_code(std::errc::file_exists));
    if (move(from, to)) return;
    copyWhole(from, to);
    waitUntilStored(to.parent_path());
    std::error_code ignored;
    fs::remove_all(from, ignored);
}

}  // namespace

std::string Rescue::Kept::sentence() const {
    return fmt::format("{} that had not been sent yet are in {} in your Downloads.",
                       Format::count(files, "file"), folder.filename().string());
}

fs::path Rescue::downloads(const UserFolders& folders) {
    return folders.downloads().value_or(folders.home() / "Downloads");
}

std::string Rescue::folderName(Date date, const Calendar& calendar) {
    return "Vark – not sent yet " + calendar.format(date, "d MMM yyyy");
}

bool Rescue::rename(const fs::path& from, const fs::path& to) {
    std::error_code failure;
    fs::rename(from, to, failure);
    return !failure;
}

std::optional<Rescue::Kept> Rescue::keep(const fs::path& from, const fs::path& in, Date date,
                                         const Calendar& calendar, const Mover& move) {
    std::vector<fs::path> members;
    for (const fs::directory_entry& member : fs::directory_iterator(from))
        members.push_back(member.path());
    std::error_code ignored;
    if (members.empty()) {
        fs::remove(from, ignored);
        return std::nullopt;
    }
    const fs::path folder = freeName(in, folderName(date, calendar));
    fs::create_directories(folder);
    for (const fs::path& member : members)
        carry(member, folder / member.filename(), move);
    // Not with what may have come into it meanwhile.
    fs::remove(from, ignored);
    const Count counted = count(folder);
    return Kept{folder, counted.files, counted.bytes};
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
