#include "VarkCore/Transfer/Queue/QueueStore.h"

#include <unistd.h>

#include <cerrno>

#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Transfer/Queue/QueueCoding.h"

namespace vark {

QueueStore::QueueStore(std::filesystem::path url, WallClock now, Durability durability)
    : url_(std::move(url)), now_(std::move(now)), durability_(durability) {}

std::filesystem::path QueueStore::defaultURL(const Locations& locations) {
    return locations.queue();
}

std::optional<TransferJob> QueueStore::load() const {
    std::string bytes;
    try {
        bytes = readWholeFile(url_);
    } catch (const FileError& error) {
        if (error.errorNumber() == ENOENT) return std::nullopt;
        throw;
    }
    return decode(bytes);
}

std::optional<TransferJob> QueueStore::decode(std::string_view bytes) {
    std::optional<TransferJob> job = decodeQueue(bytes);
    if (!job) return std::nullopt;
    return std::move(*job).preparedForResume();
}

QueueStore::Snapshot QueueStore::encode(const TransferJob* job) {
    Snapshot snapshot;
    snapshot.sequence = ++lastEncoded_;
    if (job != nullptr) snapshot.bytes = encodeQueue(*job, now_());
    return snapshot;
}

void QueueStore::write(const Snapshot& snapshot) {
    try {
        replaceFile(snapshot);
    } catch (const FileError& error) {
        throw FileError("Could not save the queue as", url_, error.errorNumber());
    }
}

template <class Change>
bool QueueStore::putInPlace(const Snapshot& snapshot, Change change) {
    const Locked locked(lock_);
    if (snapshot.sequence <= lastWritten_) return false;
    change();
    lastWritten_ = snapshot.sequence;
    return true;
}

void QueueStore::replaceFile(const Snapshot& snapshot) {
    const std::filesystem::path folder = url_.parent_path();
    bool hasChanged = false;
    if (!snapshot.bytes) {
        putInPlace(snapshot, [&] {
            hasChanged = unlink(url_.c_str()) == 0;
            if (!hasChanged && errno != ENOENT) throw FileError("Could not remove", url_, errno);
        });
    } else {
        std::error_code failure;
        std::filesystem::create_directories(folder, failure);
        if (failure) throw FileError("Could not create", folder, failure.value());
        UnfinishedFile file(temporaryPathBeside(url_), 0600);
        file.write(*snapshot.bytes);
        if (durability_ == Durability::synced) file.sync();
        hasChanged = putInPlace(snapshot, [&] { file.renameTo(url_); });
    }
    if (hasChanged && durability_ == Durability::synced) syncFolder(folder);
}

}  // namespace vark
