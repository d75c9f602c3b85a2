#pragma once

// Sketched by the engine's author, who is calling it already; the owner of this folder fills it in.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Foundation/Date.h"
#include "VarkCore/Foundation/UUID.h"
#include "VarkCore/Upload/Digest.h"

namespace vark {

/// Where one file of the queue stands. Stored as its lower-case name.
enum class ItemState : std::uint8_t { queued, hashing, uploading, checking, verified, conflict, skipped, failed };
inline constexpr std::size_t itemStateCount = 8;

std::string_view storedName(ItemState state);
std::optional<ItemState> itemStateNamed(std::string_view name);
bool isFinished(ItemState state);
bool isInFlight(ItemState state);
bool needsDecision(ItemState state);

/// One file of the queue. The hash is kept as its 32 bytes and not as text, since a queue may hold a million of these.
struct TransferItem {
    UUID id;
    UUID entryID;
    std::string localPath;
    std::string relativePath;
    std::int64_t size = 0;
    double mtime = 0;
    std::optional<Digest> sha256;
    ItemState state = ItemState::queued;
    std::optional<std::string> uploadID;
    std::optional<std::int64_t> chunkSize;
    std::vector<std::int64_t> doneChunks;
    bool replace = false;
    bool alreadyThere = false;
    std::optional<std::string> error;
    std::int64_t attempts = 0;
    std::optional<Date> finishedAt;

    std::string_view name() const;
    std::int64_t bytesDone() const;
    TransferItem preparedForResume() const;
    bool operator==(const TransferItem&) const = default;
};

struct TransferEntry {
    UUID id;
    std::string localPath;
    std::string name;
    bool isFolder = false;
    std::int64_t fileCount = 0;
    std::int64_t totalBytes = 0;
    std::optional<std::string> volumeName;
    Date addedAt;
    bool operator==(const TransferEntry&) const = default;
};

struct IngestInfo {
    std::int64_t id = 0;
    std::string drive;
    std::string volumePath;
    std::optional<std::string> volumeUUID;
    bool emailMe = false;
    bool keepAwake = false;
    std::vector<std::string> leftOut;
    Date startedAt;
    bool reported = false;

    bool driveIsHere() const;
    std::string waitingLine() const;
    std::string source(std::string_view localPath) const;
    bool operator==(const IngestInfo&) const = default;
};

struct TransferJob {
    UUID id;
    std::string title;
    std::string destination;
    std::string clientName;
    std::vector<TransferEntry> entries;
    std::vector<TransferItem> items;
    Date createdAt;
    bool isPaused = false;
    std::optional<bool> pausedByVark;
    std::optional<IngestInfo> ingest;

    std::string serverPath(const TransferItem& item) const;
    std::vector<const TransferItem*> itemsIn(const UUID& entryID) const;
    TransferJob preparedForResume() const;
    bool operator==(const TransferJob&) const = default;
};

}  // namespace vark
