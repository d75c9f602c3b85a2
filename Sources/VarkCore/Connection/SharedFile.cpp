#include "VarkCore/Connection/SharedFile.h"

namespace vark {

std::optional<std::string> SharedFile::bytes(const Path& path) {
    try {
        return readWholeFile(path);
    } catch (const FileError&) {
        return std::nullopt;
    }
}

bool SharedFile::write(const Path& path, std::string_view bytes, Durability durability) {
    std::error_code failure;
    std::filesystem::create_directories(path.parent_path(), failure);
    if (failure) return false;
    try {
        writeAtomically(path, bytes, 0600, durability);
        return true;
    } catch (const FileError&) {
        return false;
    }
}

void SharedFile::remove(const Path& path) {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
}

std::optional<FileLock> SharedFile::lock(const Path& path) {
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);
    try {
        return FileLock::exclusive(path);
    } catch (const FileError&) {
        return std::nullopt;
    }
}

}  // namespace vark
