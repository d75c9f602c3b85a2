#pragma once

#include <fmt/format.h>

#include "VarkCore/Transfer/Queue/QueueModel.h"

namespace vark {

inline UUID sampleUUID(std::uint64_t number) {
    UUID id;
    for (std::size_t byte = 0; byte < 8; ++byte)
        id.bytes[15 - byte] = static_cast<std::uint8_t>(number >> (8 * byte));
    return id;
}

/// A job as it comes off a large shoot: `count` items with paths of usual length, hashed, every twentieth of
/// them with an upload begun.
inline TransferJob sampleQueue(std::size_t count) {
    const Date now = Date::fromSince1970(1'740'994'867);
    TransferJob job;
    job.id = sampleUUID(1);
    job.title = "Shoot";
    job.destination = "Jobs/2025";
    job.clientName = "Acme";
    job.createdAt = now;
    job.entries.push_back({.id = sampleUUID(2),
                           .localPath = "/Volumes/Media/Projects/Acme/Shoot",
                           .name = "Shoot",
                           .isFolder = true,
                           .fileCount = static_cast<std::int64_t>(count),
                           .totalBytes = 1,
                           .volumeName = "Media",
                           .addedAt = now});
    job.items.reserve(count);
    for (std::size_t number = 0; number < count; ++number) {
        TransferItem& item = job.items.emplace_back();
        item.id = sampleUUID(1000 + number);
        item.entryID = sampleUUID(2);
        item.relativePath = fmt::format("Shoot/Day {:02}/Camera A/CLIP{:07}.MXF", number % 30, number);
        item.localPath = "/Volumes/Media/Projects/Acme/" + item.relativePath;
        item.size = static_cast<std::int64_t>(number * 4099);
        item.mtime = 1'700'000'000.0 + static_cast<double>(number) / 7;
        item.sha256 = ContentHash::parse(fmt::format("{:064x}", number * 2'654'435'761));
        if (number % 20 != 0) continue;
        item.state = ItemState::uploading;
        item.uploadID = fmt::format("upload-{:024x}", number);
        item.chunkSize = 8'388'608;
        item.doneChunks = {0, 1, 2, 5};
    }
    return job;
}

}  // namespace vark
