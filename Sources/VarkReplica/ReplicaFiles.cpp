#include "VarkReplica/ReplicaFiles.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>

#include "VarkCore/Connection/SharedConnection.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

/// So that no folder has more than a hundredth of all contents.
constexpr Ino contentFolders = 100;

std::string numbers(Ino ino, std::int64_t number) {
    return fmt::format("{}-{}", ino, number);
}

void makeFolder(const std::filesystem::path& folder) {
    if (::mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST) return;
    throw FileError("Could not create", folder, errno);
}

}  // namespace

ReplicaFiles ReplicaFiles::of(const Path& storage, const std::string& domain, const std::string& server) {
    return ReplicaFiles(storage / "disk" / fmt::format("{}-{:08x}", domain, stableHash(server)));
}

ReplicaFiles::Path ReplicaFiles::content(Ino ino, std::int64_t number) const {
    return contents() / fmt::format("{:02}", ino % contentFolders) / numbers(ino, number);
}

ReplicaFiles::Path ReplicaFiles::incoming(Ino ino, std::int64_t number, std::int64_t copy) const {
    return incoming() / fmt::format("{}-{}", numbers(ino, number), copy);
}

void ReplicaFiles::makeFolders() const {
    std::error_code failed;
    std::filesystem::create_directories(folder_.parent_path(), failed);
    if (failed) throw FileError("Could not create", folder_.parent_path(), failed.value());
    makeFolder(folder_);
    makeFolder(contents());
    makeFolder(incoming());
    for (Ino each = 0; each < contentFolders; ++each)
        makeFolder(contents() / fmt::format("{:02}", each));
}

}  // namespace vark
