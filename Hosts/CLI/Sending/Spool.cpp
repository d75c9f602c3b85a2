#include "Hosts/CLI/Sending/Spool.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "VarkCore/Connection/SharedFile.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Foundation/UUID.h"
#include "VarkCore/Policies/LocalCache.h"
#include "VarkCore/Upload/FileHasher.h"

namespace vark::cli {

namespace {

constexpr std::size_t pieceBytes = 1 << 20;
constexpr mode_t forThePersonAlone = 0600;
constexpr const char* recordEnding = ".json";

/// What lies in the folder of the same name, as the file beside that says.
struct Kept {
    std::string name;
    std::string varkPath;
    std::int64_t size = 0;
    std::string sha256;

    static Kept fromJSON(const boost::json::value& value) {
        const JSONFields fields(value);
        return {fields.required<std::string>("name"), fields.required<std::string>("varkPath"),
                fields.required<std::int64_t>("size"), fields.required<std::string>("sha256")};
    }
    std::string toJSON() const {
        JSONWriter json;
        json.beginObject().field("name", name).field("varkPath", varkPath).field("size", size);
        return json.field("sha256", sha256).endObject().take();
    }
    bool isWhatStands(const VarkItem& item) const {
        return !item.isDir && item.size == size && item.sha256 == sha256;
    }
};

std::vector<std::filesystem::path> recordsIn(const std::filesystem::path& folder) {
    std::error_code failure;
    std::vector<std::filesystem::path> found;
    for (std::filesystem::directory_iterator entry(folder, failure), end; !failure && entry != end;
         entry.increment(failure)) {
        if (entry->path().extension() == recordEnding) found.push_back(entry->path());
    }
    return found;
}

/// All that comes until the end, with its length and checksum.
void readToTheEnd(int from, UnfinishedFile& to, Kept& kept) {
    RunningHash hash;
    const auto piece = std::make_unique_for_overwrite<char[]>(pieceBytes);
    for (;;) {
        const ssize_t length = read(from, piece.get(), pieceBytes);
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) throw FileError("Could not read", "standard input", errno);
        if (length == 0) break;
        const std::string_view bytes(piece.get(), static_cast<std::size_t>(length));
        hash.add(bytes);
        to.write(bytes);
        kept.size += length;
    }
    kept.sha256 = hash.hexadecimal();
}

}  // namespace

std::filesystem::path Spool::take(int from, const std::string& name, const std::string& varkPath) const {
    const std::filesystem::path folder = folder_ / UUID::random().text();
    std::filesystem::create_directories(folder);
    Kept kept{name, varkPath, 0, ""};
    try {
        UnfinishedFile unfinished(temporaryPathBeside(folder), forThePersonAlone);
        readToTheEnd(from, unfinished, kept);
        unfinished.sync();
        unfinished.renameTo(folder / name);
    } catch (const FileError&) {
        SharedFile::remove(folder);
        throw;
    }
    syncFolder(folder);
    // Without this record the file only stays for longer, so it comes last.
    writeAtomically(folder.native() + recordEnding, kept.toJSON(), forThePersonAlone);
    return folder / name;
}

bool Spool::isEmpty() const {
    std::error_code failure;
    return std::filesystem::directory_iterator(folder_, failure) == std::filesystem::directory_iterator();
}

Task<void> Spool::sweep(std::shared_ptr<VarkAPI> api) const {
    LocalCache::sweep({folder_});
    for (std::filesystem::path& record : recordsIn(folder_)) {
        const std::optional<Kept> kept = SharedFile::read(record, Kept::fromJSON);
        if (!kept) continue;
        try {
            const VarkItem item = co_await api->item(kept->varkPath);
            if (!kept->isWhatStands(item)) continue;
        } catch (const VarkAPIError&) {
            // It is not there, or nobody can say: then it stays.
            continue;
        }
        SharedFile::remove(record);
        const std::filesystem::path folder = record.replace_extension();
        SharedFile::remove(folder / kept->name);
        SharedFile::remove(folder);
    }
}

}  // namespace vark::cli
