#include "VarkBox/Store/OpenUpload.h"

#include <unistd.h>

#include <algorithm>

namespace vark::box {

namespace {

constexpr std::int64_t hashedAtOnce = 1 << 20;

}  // namespace

OpenUpload::OpenUpload(UploadRecord record, const std::vector<std::int64_t>& held)
    : record_(std::move(record)), held_(static_cast<std::size_t>(record_.chunkCount())) {
    for (std::int64_t index : held)
        noteLanded(index);
}

std::shared_ptr<ChunkSlot> OpenUpload::slot(std::int64_t index) {
    Locked guard(lock_);
    std::weak_ptr<ChunkSlot>& known = slots_[index];
    std::shared_ptr<ChunkSlot> slot = known.lock();
    if (!slot) {
        slot = std::make_shared<ChunkSlot>(held_.at(static_cast<std::size_t>(index)));
        known = slot;
    }
    return slot;
}

void OpenUpload::noteLanded(std::int64_t index) {
    Locked guard(lock_);
    std::vector<bool>::reference held = held_.at(static_cast<std::size_t>(index));
    if (held) return;
    held = true;
    receivedBytes_ += record_.chunkLength(index);
}

bool OpenUpload::holds(std::int64_t index) const {
    Locked guard(lock_);
    return held_.at(static_cast<std::size_t>(index));
}

std::vector<std::int64_t> OpenUpload::held() const {
    return indexes(true);
}

std::vector<std::int64_t> OpenUpload::missing() const {
    return indexes(false);
}

std::vector<std::int64_t> OpenUpload::indexes(bool held) const {
    Locked guard(lock_);
    std::vector<std::int64_t> indexes;
    for (std::size_t i = 0; i < held_.size(); ++i) {
        if (held_[i] == held) indexes.push_back(static_cast<std::int64_t>(i));
    }
    return indexes;
}

std::int64_t OpenUpload::receivedBytes() const {
    Locked guard(lock_);
    return receivedBytes_;
}

void OpenUpload::hashWhatLanded(const ObjectFiles& files, const std::stop_token& stop) {
    const std::int64_t size = record_.file.content.size;
    if (hashedBytes_ == size || !holds(hashedBytes_ / record_.chunkSize)) return;
    Descriptor file = files.openForChecking(record_.id);
    std::string piece;
    while (hashedBytes_ < size && !stop.stop_requested()) {
        std::int64_t index = hashedBytes_ / record_.chunkSize;
        if (!holds(index)) return;
        std::int64_t chunkEnd = record_.chunkOffset(index) + record_.chunkLength(index);
        piece.resize(static_cast<std::size_t>(std::min(hashedAtOnce, chunkEnd - hashedBytes_)));
        ssize_t count = ::pread(file.get(), piece.data(), piece.size(), hashedBytes_);
        if (count < 0) throw FileError("Could not read", record_.id, errno);
        // Bytes that are missing on disk come out as a hash that is not right.
        if (count == 0) return;
        hasher_.add(std::string_view(piece).substr(0, static_cast<std::size_t>(count)));
        hashedBytes_ += count;
    }
}

bool OpenUpload::hashIsRight() {
    return hashedBytes_ == record_.file.content.size && hasher_.digest() == record_.file.content.sha256;
}

}  // namespace vark::box
