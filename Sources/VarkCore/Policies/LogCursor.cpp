#include "VarkCore/Policies/LogCursor.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

std::string readFrom(int file, std::uint64_t start, std::uint64_t end, const std::filesystem::path& log) {
    std::string bytes(end - start, '\0');
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t count =
            pread(file, bytes.data() + filled, bytes.size() - filled, static_cast<off_t>(start + filled));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) throw FileError("Could not read", log, count < 0 ? errno : EIO);
        filled += static_cast<std::size_t>(count);
    }
    return bytes;
}

}  // namespace

LogCursor::Unread LogCursor::unread(const std::filesystem::path& log, std::uint64_t offset,
                                    std::int64_t cap) {
    if (cap < 0) return {"", offset};
    try {
        const Descriptor file = openForReading(log);
        struct stat values{};
        if (fstat(file.get(), &values) != 0) throw FileError("Could not read", log, errno);
        const auto end = static_cast<std::uint64_t>(values.st_size);
        const auto most = static_cast<std::uint64_t>(cap);
        std::uint64_t start = end < offset ? 0 : offset;
        if (end - start > most) start = end - most;
        return {repairedUTF8(readFrom(file.get(), start, end, log)), end};
    } catch (const FileError&) {
        return {"", offset};
    }
}

LogCursor LogCursor::fromJSON(const boost::json::value& value) {
    return {JSONFields(value).required<std::uint64_t>("offset")};
}

void LogCursor::encode(JSONWriter& json) const {
    json.beginObject().field("offset", offset).endObject();
}

}  // namespace vark
