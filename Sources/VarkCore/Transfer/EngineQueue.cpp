// What changes the queue as a list: adding, removing, editing, deciding.

#include <fmt/format.h>

#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/Format.h"
#include "VarkCore/Transfer/TransferEngine.h"

namespace vark {

namespace {

/// Absolute, without "." and "..", and without a slash at its end.
std::filesystem::path standardised(const std::filesystem::path& path) {
    std::filesystem::path standard = std::filesystem::absolute(path).lexically_normal();
    return standard.has_filename() || standard == standard.root_path() ? standard : standard.parent_path();
}

}  // namespace

void TransferEngine::rebuildIndex() {
    itemIndex_.clear();
    waiting_.clear();
    totals_.clear();
    entryPaths_.clear();
    indexed_ = 0;
    if (!job_) return;
    for (const TransferEntry& entry : job_->entries) {
        entryPaths_.insert(entry.localPath);
        totals_.addEntry(entry.id);
    }
    indexNewItems();
}

void TransferEngine::indexNewItems() {
    itemIndex_.reserve(job_->items.size());
    for (; indexed_ < job_->items.size(); ++indexed_) {
        const TransferItem& item = job_->items[indexed_];
        itemIndex_.emplace(item.id, static_cast<std::uint32_t>(indexed_));
        totals_.add(item.entryID, shareOf(item));
        if (item.state == ItemState::queued && !tasks_.contains(item.id)) waiting_.insert(indexed_);
    }
}

std::optional<std::size_t> TransferEngine::position(const UUID& id) const {
    auto found = itemIndex_.find(id);
    if (found == itemIndex_.end()) return std::nullopt;
    return found->second;
}

QueueTotals::Share TransferEngine::shareOf(const TransferItem& item) const {
    auto active = tasks_.find(item.id);
    if (active == tasks_.end()) return {item.size, std::min(item.size, item.bytesDone()), item.state};
    return {item.size, std::min(item.size, active->second.heldBytes + active->second.inFlightBytes),
            item.state};
}

void TransferEngine::ensureJob(const std::string& title, const std::string& destination,
                               const std::string& clientName) {
    assertOnExecutor();
    if (job_) return;
    TransferJob job;
    job.id = UUID::random();
    job.title = title;
    job.destination = destination;
    job.clientName = clientName;
    job.createdAt = now();
    job_ = std::move(job);
    rebuildIndex();
    scheduleSave();
}

void TransferEngine::setTitle(const std::string& title) {
    assertOnExecutor();
    if (!job_) return;
    job_->title = title;
    scheduleSave();
}

void TransferEngine::setDestination(const std::string& path) {
    ensureJob("", "", "");
    std::string destination = tidiedVarkPath(path);
    if (destination == job_->destination) return;
    job_->destination = destination;
    log_.write(fmt::format("Destination set to {}", destination.empty() ? "the vark root" : destination));
    scheduleSave();
}

void TransferEngine::setClientName(const std::string& name) {
    ensureJob("", "", "");
    job_->clientName = name;
    scheduleSave();
}

void TransferEngine::setIngest(const std::optional<IngestInfo>& info) {
    ensureJob("", "", "");
    job_->ingest = info;
    scheduleSave();
}

void TransferEngine::ingestReported() {
    assertOnExecutor();
    if (!job_) return;
    if (job_->ingest) job_->ingest->reported = true;
    flush();
}

Task<TransferEngine::Added> TransferEngine::add(std::vector<std::filesystem::path> paths) {
    assertOnExecutor();
    ensureJob("", "", "");
    Added added;
    for (const std::filesystem::path& given : paths) {
        std::filesystem::path path = standardised(given);
        std::optional<NotAdded> refusal;
        std::optional<Walker::Result> found;
        if (!hasEntry(path.string())) {
            try {
                found = co_await host_.pool.run([&path, this] { return Walker::walk(path, host_.volumes); });
            } catch (const std::exception& error) {
                refusal = NotAdded{fmt::format("Could not add {}: {}", path.string(), error.what())};
            }
        }
        // While the walk went on, the queue may have been cleared, or somebody else may have added the same.
        ensureJob("", "", "");
        if (hasEntry(path.string()))
            refusal = NotAdded{fmt::format("Already in the queue: {}", path.string()), true};
        if (refusal) {
            log_.write(refusal->sentence);
            added.notAdded.push_back(std::move(*refusal));
            continue;
        }
        append(path, *found);
        added.items += static_cast<int>(found->files.size());
    }
    takeUpNewItems();
    co_return added;
}

bool TransferEngine::addWalked(const std::filesystem::path& given, const Walker::Result& found) {
    assertOnExecutor();
    ensureJob("", "", "");
    const std::filesystem::path path = standardised(given);
    if (hasEntry(path.string())) return false;
    append(path, found);
    takeUpNewItems();
    return true;
}

void TransferEngine::takeUpNewItems() {
    indexNewItems();
    recompute();
    scheduleSave();
    pump();
}

bool TransferEngine::hasEntry(const std::string& path) const {
    return entryPaths_.contains(path);
}

void TransferEngine::append(const std::filesystem::path& path, const Walker::Result& found) {
    TransferEntry entry;
    entry.id = UUID::random();
    entry.localPath = path.string();
    entry.name = path.filename().string();
    entry.isFolder = found.isFolder;
    entry.fileCount = static_cast<std::int64_t>(found.files.size());
    entry.totalBytes = found.totalBytes();
    entry.volumeName = found.volumeName;
    entry.addedAt = now();

    std::string parent = path.parent_path().string();
    if (!parent.ends_with('/')) parent += '/';
    std::size_t needed = job_->items.size() + found.files.size();
    if (needed > job_->items.capacity()) job_->items.reserve(std::max(needed, job_->items.size() * 3 / 2));
    for (const Walker::Found& file : found.files) {
        TransferItem item;
        item.id = UUID::random();
        item.entryID = entry.id;
        item.localPath = parent + file.relativePath;
        item.relativePath = file.relativePath;
        item.size = file.size;
        item.mtime = file.mtime;
        job_->items.push_back(std::move(item));
    }
    if (job_->title.empty()) job_->title = entry.name;
    log_.write(fmt::format("Added {}: {}, {}{}", entry.name, Format::count(entry.fileCount, "file"),
                           Format::bytes(entry.totalBytes),
                           entry.volumeName ? fmt::format(" from \"{}\"", *entry.volumeName) : ""));
    entryPaths_.insert(entry.localPath);
    totals_.addEntry(entry.id);
    job_->entries.push_back(std::move(entry));
}

void TransferEngine::remove(const UUID& entryID) {
    assertOnExecutor();
    if (job_) removeEntries({entryID});
}

void TransferEngine::clearFinished() {
    assertOnExecutor();
    if (!job_) return;
    std::unordered_set<UUID> finished;
    for (const TransferEntry& entry : job_->entries) {
        auto progress = totals_.entries().find(entry.id);
        if (progress == totals_.entries().end() || progress->second.isFinished()) finished.insert(entry.id);
    }
    if (!finished.empty()) removeEntries(finished);
}

void TransferEngine::removeEntries(const std::unordered_set<UUID>& entryIDs) {
    std::vector<std::string> uploads;
    std::erase_if(job_->items, [&](const TransferItem& item) {
        if (!entryIDs.contains(item.entryID)) return false;
        if (auto active = tasks_.find(item.id); active != tasks_.end()) {
            active->second.task.cancel();
            tasks_.erase(active);
        }
        if (!isFinished(item.state) && item.uploadID) uploads.push_back(*item.uploadID);
        return true;
    });
    cancelOnServer(std::move(uploads));
    std::erase_if(job_->entries, [&](const TransferEntry& entry) {
        if (!entryIDs.contains(entry.id)) return false;
        log_.write(fmt::format("Removed {} from the queue", entry.name));
        return true;
    });
    rebuildIndex();
    recompute();
    scheduleSave();
    pump();
}

void TransferEngine::clearAll() {
    assertOnExecutor();
    cancelAllTasks();
    std::vector<std::string> uploads;
    if (job_) {
        for (const TransferItem& item : job_->items) {
            if (!isFinished(item.state) && item.uploadID) uploads.push_back(*item.uploadID);
        }
    }
    cancelOnServer(std::move(uploads));
    job_.reset();
    // The tasks stay until they have ended; what they told of their progress is of no item any more.
    for (auto& [id, active] : tasks_) {
        active.partial.clear();
        active.inFlightBytes = 0;
        active.hashingBytes = 0;
    }
    rebuildIndex();
    recompute();
    flush();
    log_.write("Cleared the queue");
}

void TransferEngine::cancelOnServer(std::vector<std::string> uploadIDs) {
    if (uploadIDs.empty()) return;
    std::erase_if(serverCancels_, [](const TaskHandle<void>& task) { return task.done(); });
    serverCancels_.push_back(scope_.start(cancelUploads(api_, std::move(uploadIDs))));
}

Task<void> TransferEngine::cancelUploads(std::shared_ptr<VarkAPI> api, std::vector<std::string> uploadIDs) {
    for (const std::string& uploadID : uploadIDs) {
        try {
            co_await api->cancel(uploadID);
        } catch (const std::exception&) {
            // The vark drops parts that nobody finishes by itself, in time.
        }
    }
}

Task<void> TransferEngine::serverCancelsDone() {
    std::vector<TaskHandle<void>> cancels = serverCancels_;
    for (const TaskHandle<void>& cancel : cancels)
        co_await cancel.finished();
}

void TransferEngine::resolveConflict(const UUID& itemID, bool replace) {
    assertOnExecutor();
    const TransferItem* found = item(itemID);
    if (found == nullptr || found->state != ItemState::conflict) return;
    std::string relativePath = found->relativePath;
    if (replace) {
        set(itemID, [](TransferItem& item) {
            item.replace = true;
            item.state = ItemState::queued;
            item.error.reset();
        });
        log_.write(fmt::format("Will replace {} in the vark", relativePath));
    } else {
        set(itemID, [this](TransferItem& item) {
            item.state = ItemState::skipped;
            item.finishedAt = now();
        });
        log_.write(fmt::format("Left the vark's copy of {}", relativePath));
    }
    recompute();
    scheduleSave();
    pump();
}

void TransferEngine::resolveAllConflicts(const std::optional<UUID>& entryID, bool replace) {
    assertOnExecutor();
    if (!job_) return;
    std::vector<UUID> waiting;
    for (const TransferItem& item : job_->items) {
        if (item.state != ItemState::conflict) continue;
        if (!entryID || item.entryID == *entryID) waiting.push_back(item.id);
    }
    for (const UUID& id : waiting)
        resolveConflict(id, replace);
}

void TransferEngine::retryFailed() {
    assertOnExecutor();
    if (!job_) return;
    std::vector<UUID> failed;
    for (const TransferItem& item : job_->items) {
        if (item.state == ItemState::failed) failed.push_back(item.id);
    }
    for (const UUID& id : failed) {
        set(id, [](TransferItem& item) {
            item.state = ItemState::queued;
            item.error.reset();
            item.attempts = 0;
        });
    }
    if (!failed.empty()) {
        log_.write(
            fmt::format("Retrying {}", Format::count(static_cast<std::int64_t>(failed.size()), "file")));
    }
    recompute();
    scheduleSave();
    pump();
}

}  // namespace vark
