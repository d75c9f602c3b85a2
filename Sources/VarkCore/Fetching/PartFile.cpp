#include "VarkCore/Fetching/PartFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string_view>

namespace vark {
namespace {

constexpr std::string_view beginning = ".vark-";
constexpr std::string_view ending = ".part";
constexpr std::size_t digits = 16;
constexpr double longestUnwanted = 7 * 86'400;
/// Somebody who removes the part just as we open it is met once, not again and again.
constexpr int mostTries = 5;
constexpr mode_t permissions = 0777;

std::string digest(const std::string& text) {
    return FileHasher::sha256(text).substr(0, digits);
}

/// What the names of all parts of one file begin with.
std::string beginningFor(const std::string& name) {
    return fmt::format("{}{}-", beginning, digest(name));
}

bool isPartName(std::string_view name) {
    return name.size() == beginning.size() + 2 * digits + 1 + ending.size() && name.starts_with(beginning) &&
           name.ends_with(ending);
}

/// False when somebody else has it. On a file system that knows no locks nobody has.
bool lock(const Descriptor& file) {
    return flock(file.get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

/// Read from the system's table, since asking by the call would change it for all threads.
mode_t umaskOfThisProcess() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with("Umask:")) return static_cast<mode_t>(std::stoul(line.substr(6), nullptr, 8));
    }
    return 0077;
}

/// Nothing for what is no time that a disk can hold.
std::optional<timespec> timeOf(std::optional<double> seconds) {
    constexpr double farAway = 1e11;
    if (!seconds || !(std::abs(*seconds) < farAway)) return std::nullopt;
    const double whole = std::floor(*seconds);
    return timespec{static_cast<time_t>(whole), static_cast<long>((*seconds - whole) * 1e9)};
}

}  // namespace

PartFile::PartFile(const OpenFolder& folder, std::string name, const VarkItem& item)
    : folder_(folder),
      name_(std::move(name)),
      isRecognisable_(!item.sha256.empty()),
      partName_(nameFor(name_, item.sha256)) {
    open();
    if (!isRecognisable_ || size_ > item.size) empty();
    isContinued_ = size_ > 0;
}

PartFile::~PartFile() {
    if (isInPlace_) return;
    if (isWorthless_ || !isRecognisable_ || size_ == 0) folder_.remove(partName_);
}

void PartFile::open() {
    for (int tries = 0; tries < mostTries; ++tries) {
        file_ = folder_.tryOpen(partName_, O_RDWR | O_CREAT | O_NONBLOCK, 0600);
        if (!file_ && errno != ELOOP) throw FileError("Could not create", folder_.pathOf(partName_), errno);
        if (file_ && !lock(file_)) throw std::runtime_error("Another vark is fetching it just now.");
        struct stat opened{};
        if (file_ && fstat(file_.get(), &opened) != 0)
            throw FileError("Could not read", folder_.pathOf(partName_), errno);
        const auto named = folder_.look(partName_);
        // Somebody has put it in place, or swept it, just before we had the lock.
        if (!named || (file_ && named->st_ino != opened.st_ino)) continue;
        // Where others may write too, it could be a way into a file of ours that lies elsewhere.
        if (file_ && S_ISREG(opened.st_mode) && opened.st_uid == geteuid() && opened.st_nlink == 1) {
            size_ = opened.st_size;
            return;
        }
        folder_.remove(partName_);
    }
    throw FileError("Could not create", folder_.pathOf(partName_), EEXIST);
}

void PartFile::empty() {
    if (ftruncate(file_.get(), 0) != 0) throw FileError("Could not write", folder_.pathOf(partName_), errno);
    size_ = 0;
}

void PartFile::startOver() {
    empty();
    isContinued_ = false;
}

void PartFile::take(std::int64_t at, std::string_view bytes) {
    if (at == 0 && size_ != 0) empty();
    while (!bytes.empty()) {
        const ssize_t written = pwrite(file_.get(), bytes.data(), bytes.size(), size_);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) throw FileError("Could not write", folder_.pathOf(partName_), errno);
        bytes.remove_prefix(static_cast<std::size_t>(written));
        size_ += written;
        taken_ += written;
    }
}

std::string PartFile::sha256(const FileHasher::Progress& progress) const {
    return FileHasher::sha256Of(file_, folder_.pathOf(partName_), progress);
}

void PartFile::moveIntoPlace(WhatStands whatStands, std::optional<double> mtime) {
    const std::filesystem::path to = folder_.pathOf(name_);
    const std::optional<struct stat> there = folder_.look(name_);
    const bool replaces = there && whatStands == WhatStands::isReplaced && S_ISREG(there->st_mode);
    if (there && !replaces) throw FileError("Could not put in place", to, EEXIST);
    const mode_t mode = replaces ? there->st_mode & permissions : 0666 & ~umaskOfThisProcess();
    if (fchmod(file_.get(), mode) != 0) throw FileError("Could not set the permissions of", to, errno);
    if (const std::optional<timespec> time = timeOf(mtime)) {
        const timespec times[] = {{0, UTIME_OMIT}, *time};
        if (futimens(file_.get(), times) != 0) throw FileError("Could not set the time of", to, errno);
    }
    if (fdatasync(file_.get()) != 0) throw FileError("Could not write", to, errno);
    int failure = folder_.rename(partName_, name_, replaces ? 0 : RENAME_NOREPLACE);
    if (failure == EINVAL && !replaces) {
        // This file system cannot look and rename in one step.
        failure = folder_.look(name_) ? EEXIST : folder_.rename(partName_, name_, 0);
    }
    if (failure != 0) throw FileError("Could not put in place", to, failure);
    isInPlace_ = true;
}

std::string PartFile::nameFor(const std::string& name, const std::string& sha256) {
    // The checksum is the vark's word, so only a digest of it gets into a path.
    return fmt::format("{}{}{}", beginningFor(name), digest(sha256), ending);
}

void PartFile::sweep(const OpenFolder& folder, const std::vector<std::string>& wanted, Date now) {
    std::set<std::string, std::less<>> files;
    for (const std::string& part : wanted)
        files.insert(part.substr(0, beginning.size() + digits));
    for (const std::string& name : folder.names()) {
        if (!isPartName(name) || std::ranges::find(wanted, name) != wanted.end()) continue;
        const std::optional<struct stat> there = folder.look(name);
        if (!there || !S_ISREG(there->st_mode) || there->st_uid != geteuid()) continue;
        const bool isOld = now.since1970() - static_cast<double>(there->st_mtim.tv_sec) > longestUnwanted;
        if (!isOld && !files.contains(std::string_view(name).substr(0, beginning.size() + digits))) continue;
        const Descriptor file = folder.tryOpen(name, O_RDWR | O_NONBLOCK);
        if (file && lock(file)) folder.remove(name);
    }
}

}  // namespace vark
