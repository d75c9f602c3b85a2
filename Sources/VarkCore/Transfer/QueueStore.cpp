#include "VarkCore/Transfer/QueueStore.h"

#include <unistd.h>

#include <cerrno>

#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Transfer/QueueCoding.h"

namespace vark {

QueueStore::QueueStore(std::filesystem::path url, WallClock now, Durability durability)
    : url_(std::move(url)), now_(std::move(now)), durability_(durability) {}

std::filesystem::path QueueStore::defaultURL(const Locations& locations) {
    return locations.queue();
}

std::optional<TransferJob> QueueStore::load() const {
    const Locked locked(lock_);
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
    const Locked locked(lock_);
    if (snapshot.sequence <= lastWritten_) return;
    replaceFile(snapshot);
    lastWritten_ = snapshot.sequence;
}

void QueueStore::replaceFile(const Snapshot& snapshot) {
    if (!snapshot.bytes) {
        if (unlink(url_.c_str()) != 0 && errno != ENOENT) throw FileError("Could not remove", url_, errno);
        return;
    }
    std::error_code failure;
    std::filesystem::create_directories(url_.parent_path(), failure);
    if (failure) throw FileError("Could not create", url_.parent_path(), failure.value());
    writeAtomically(url_, *snapshot.bytes, 0600, durability_);
}

}  // namespace vark
