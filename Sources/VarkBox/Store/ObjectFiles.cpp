#include "VarkBox/Store/ObjectFiles.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <cerrno>
#include <system_error>

namespace vark::box {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view uploadExtension = ".part";

}  // namespace

ObjectFiles::ObjectFiles(const fs::path& root) : objects_(root / "objects"), uploads_(root / "uploads") {
    fs::create_directories(uploads_);
    fs::create_directories(objects_);
}

fs::path ObjectFiles::objectPath(std::string_view sha256) const {
    return objects_ / sha256.substr(0, 2) / sha256.substr(2);
}

fs::path ObjectFiles::uploadPath(std::string_view uploadID) const {
    return uploads_ / fmt::format("{}{}", uploadID, uploadExtension);
}

bool ObjectFiles::holds(std::string_view sha256, std::int64_t size) const {
    std::error_code missing;
    std::uintmax_t found = fs::file_size(objectPath(sha256), missing);
    return !missing && found == static_cast<std::uintmax_t>(size);
}

Descriptor ObjectFiles::openObject(std::string_view sha256) const {
    return openForReading(objectPath(sha256));
}

Descriptor ObjectFiles::openForWriting(std::string_view uploadID) const {
    fs::path path = uploadPath(uploadID);
    Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    if (!file) throw FileError("Could not open", path, errno);
    return file;
}

Descriptor ObjectFiles::openForChecking(std::string_view uploadID) const {
    return openForReading(uploadPath(uploadID));
}

std::int64_t ObjectFiles::receivedLength(std::string_view uploadID) const {
    std::error_code missing;
    std::uintmax_t length = fs::file_size(uploadPath(uploadID), missing);
    return missing ? 0 : static_cast<std::int64_t>(length);
}

void ObjectFiles::discard(std::string_view uploadID) const {
    fs::remove(uploadPath(uploadID));
}

void ObjectFiles::adopt(std::string_view uploadID, std::string_view sha256) const {
    fs::path object = objectPath(sha256);
    std::error_code failed;
    fs::rename(uploadPath(uploadID), object, failed);
    if (!failed) return;
    // The first object of its folder, or a failure that the second try tells of.
    fs::create_directory(object.parent_path());
    fs::rename(uploadPath(uploadID), object);
}

std::vector<std::string> ObjectFiles::uploadsOnDisk() const {
    std::vector<std::string> ids;
    for (const fs::directory_entry& entry : fs::directory_iterator(uploads_)) {
        if (entry.path().extension() == uploadExtension) ids.push_back(entry.path().stem().string());
    }
    return ids;
}

}  // namespace vark::box
