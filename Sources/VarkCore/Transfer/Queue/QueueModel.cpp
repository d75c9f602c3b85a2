#include "VarkCore/Transfer/Queue/QueueModel.h"

#include <algorithm>
#include <array>
#include <filesystem>

#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Services/Volumes.h"
#include "VarkCore/Upload/ChunkPlan.h"

namespace vark {
namespace {

/// In the order of the enumeration.
constexpr std::array<std::string_view, 8> stateNames = {"queued",   "hashing",  "uploading", "checking",
                                                        "verified", "conflict", "skipped",   "failed"};

}  // namespace

std::string_view text(ItemState state) {
    return stateNames[static_cast<std::size_t>(state)];
}

std::optional<ItemState> itemState(std::string_view text) {
    for (std::size_t index = 0; index < stateNames.size(); ++index) {
        if (stateNames[index] == text) return static_cast<ItemState>(index);
    }
    return std::nullopt;
}

bool isFinished(ItemState state) {
    return state == ItemState::verified || state == ItemState::skipped;
}

bool isInFlight(ItemState state) {
    return state == ItemState::hashing || state == ItemState::uploading || state == ItemState::checking;
}

bool needsDecision(ItemState state) {
    return state == ItemState::conflict;
}

std::string_view TransferItem::name() const {
    return lastPathComponent(relativePath);
}

std::int64_t TransferItem::bytesDone() const {
    if (isFinished(state)) return size;
    if (doneChunks.empty() || !chunkSize || *chunkSize < 1 || size < 0) return 0;
    return ChunkPlan(size, *chunkSize).bytesDone(doneChunks);
}

void TransferItem::prepareForResume() {
    if (isInFlight(state)) state = ItemState::queued;
}

TransferItem TransferItem::preparedForResume() const {
    TransferItem prepared = *this;
    prepared.prepareForResume();
    return prepared;
}

void TransferItem::forgetContent() {
    sha256.reset();
    uploadID.reset();
    doneChunks.clear();
}

void TransferItem::startAfresh(const FileStamp& file) {
    forgetContent();
    size = file.size;
    mtime = file.mtime;
    state = ItemState::queued;
    chunkSize.reset();
    replace = alreadyThere = changedWhileSent = false;
    error.reset();
    standing.reset();
    attempts = 0;
    finishedAt.reset();
}

bool IngestInfo::driveIsHere(const Volumes& volumes) const {
    std::error_code unreadable;
    const bool isPlaceThere = std::filesystem::exists(volumePath, unreadable);
    return isPlaceThere && std::ranges::any_of(volumes.volumes(), [this](const Volume& volume) {
               return volume.path == volumePath && volume.id == volumeUUID;
           });
}

IngestInfo IngestInfo::place() const {
    IngestInfo place;
    place.drive = drive;
    place.volumePath = volumePath;
    place.volumeUUID = volumeUUID;
    return place;
}

std::string IngestInfo::waitingLine() const {
    return "Plug " + drive + " back in to carry on. Nothing is lost.";
}

std::string IngestInfo::source(std::string_view localPath) const {
    const std::string card = volumePath.ends_with('/') ? volumePath : volumePath + "/";
    return std::string(localPath.starts_with(card) ? localPath.substr(card.size()) : localPath);
}

bool IngestInfo::isAtOrBelow(std::string_view path, std::string_view folder) {
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

bool IngestInfo::leavesOut(std::string_view source) const {
    return std::ranges::any_of(leftOut, [&](std::string_view path) { return isAtOrBelow(source, path); });
}

void IngestInfo::keepAccountOf(const TransferItem& item) {
    const bool hasLanded = item.state == ItemState::verified && !item.changedWhileSent;
    const Unlisted::Kind kind = hasLanded                          ? Unlisted::Kind::landed
                                : item.state == ItemState::skipped ? Unlisted::Kind::skipped
                                                                   : Unlisted::Kind::removed;
    unlisted.push_back({kind, source(item.localPath), item.size, item.mtime});
}

std::string TransferJob::serverPath(const TransferItem& item) const {
    if (destination.empty()) return item.relativePath;
    return item.relativePath.empty() ? destination : destination + "/" + item.relativePath;
}

TransferJob TransferJob::preparedForResume() && {
    for (TransferItem& item : items)
        item.prepareForResume();
    return std::move(*this);
}

}  // namespace vark
