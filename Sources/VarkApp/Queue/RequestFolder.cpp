#include "VarkApp/Queue/RequestFolder.h"

#include <sys/stat.h>

#include <algorithm>

#include "VarkCore/Foundation/Files.h"

namespace vark::app {

namespace {

constexpr std::uint64_t longestFile = 64 << 20;
constexpr std::string_view ending = ".json";

struct Found {
    Date written;
    std::filesystem::path path;
};

std::vector<Found> filesIn(const std::filesystem::path& folder) {
    std::vector<Found> files;
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(folder, failure), end; !failure && entry != end;
         entry.increment(failure)) {
        struct stat status{};
        if (lstat(entry->path().c_str(), &status) != 0) continue;
        double seconds =
            static_cast<double>(status.st_mtim.tv_sec) + static_cast<double>(status.st_mtim.tv_nsec) / 1e9;
        files.push_back({Date::fromSince1970(seconds), entry->path()});
    }
    std::ranges::sort(files, {}, [](const Found& file) { return std::pair(file.written, file.path); });
    return files;
}

bool removed(const std::filesystem::path& path) {
    std::error_code failure;
    return std::filesystem::remove(path, failure) && !failure;
}

}  // namespace

UUID RequestFolder::ask(const QueueRequest& asked) const {
    std::error_code ignored;
    std::filesystem::create_directories(folder_, ignored);
    UUID id = UUID::random();
    writeAtomically(request(id), asked.toJSON(), 0600, Durability::cached);
    return id;
}

std::optional<QueueAnswer> RequestFolder::takeAnswer(const UUID& id) const {
    std::filesystem::path path = answerTo(id);
    if (!std::filesystem::exists(path)) return std::nullopt;
    std::optional<QueueAnswer> answer;
    try {
        answer = QueueAnswer::fromJSON(parseJSON(readWholeFile(path, longestFile)));
    } catch (const std::exception&) {
        answer.emplace().refuse("The running vark answered in words that this version does not know.");
    }
    removed(path);
    return answer;
}

bool RequestFolder::withdraw(const UUID& id) const {
    return removed(request(id));
}

bool RequestFolder::isWaiting(const UUID& id) const {
    std::error_code failure;
    return std::filesystem::exists(request(id), failure);
}

std::optional<RequestFolder::Taken> RequestFolder::takeNext(Date now) const {
    for (const Found& file : filesIn(folder_)) {
        if (now - file.written > inSeconds(longestLife)) {
            removed(file.path);
            continue;
        }
        const std::string name = file.path.filename().string();
        // What bears another name is an answer, or is being written.
        if (!name.ends_with(ending)) continue;
        std::optional<UUID> id = UUID::parse(std::string_view(name).substr(0, name.size() - ending.size()));
        if (!id) continue;

        Taken one{*id, std::nullopt};
        try {
            one.request = QueueRequest::fromJSON(parseJSON(readWholeFile(file.path, longestFile)));
        } catch (const std::exception&) {
            // Answered with a sentence by whoever took it.
        }
        if (removed(file.path)) return one;
    }
    return std::nullopt;
}

void RequestFolder::answer(const UUID& id, const QueueAnswer& answer) const {
    try {
        writeAtomically(answerTo(id), answer.toJSON(), 0600, Durability::cached);
    } catch (const FileError&) {
    }
}

}  // namespace vark::app
