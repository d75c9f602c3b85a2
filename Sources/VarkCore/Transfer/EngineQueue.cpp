// What changes the queue as a list: adding, removing, editing, deciding.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Paths.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/Format.h"
#include "VarkCore/Transfer/TransferEngine.h"

namespace vark {

namespace {

constexpr std::size_t cancelsAtOnce = 4;

}  // namespace

void TransferEngine::rebuildIndex() {
    itemIndex_.clear();
    waiting_.clear();
    failed_.clear();
    conflicts_.clear();
    totals_.clear();
    entryPlaces_.clear();
    indexed_ = 0;
    if (job_) indexEntries();
    if (observer != nullptr) observer->renewed();
}

void TransferEngine::indexEntries() {
    for (std::size_t place = 0; place < job_->entries.size(); ++place) {
        entryPlaces_.emplace(job_->entries[place].localPath, place);
        totals_.addEntry(job_->entries[place].id);
    }
    indexItems();
}

void TransferEngine::indexNewItems() {
    const std::size_t first = indexed_;
    indexItems();
    if (observer != nullptr && indexed_ > first) observer->appended(first, indexed_ - first);
}

void TransferEngine::indexItems() {
    itemIndex_.reserve(job_->items.size());
    for (; indexed_ < job_->items.size(); ++indexed_) {
        const TransferItem& item = job_->items[indexed_];
        itemIndex_.emplace(item.id, static_cast<std::uint32_t>(indexed_));
        totals_.add(item.entryID, shareOf(item));
        sortIn(indexed_);
    }
}

void TransferEngine::sortIn(std::size_t place) {
    const TransferItem& item = job_->items[place];
    waiting_.put(place, item.state == ItemState::queued && !tasks_.contains(item.id));
    failed_.put(place, item.state == ItemState::failed);
    conflicts_.put(place, item.state == ItemState::conflict);
}

std::optional<std::size_t> TransferEngine::position(const UUID& id) const {
    auto found = itemIndex_.find(id);
    if (found == itemIndex_.end()) return std::nullopt;
    return found->second;
}

QueueTotals::Share TransferEngine::shareOf(const TransferItem& item) const {
    auto active = tasks_.find(item.id);
    const std::int64_t done =
        active == tasks_.end() ? item.bytesDone() : active->second.heldBytes + active->second.inFlightBytes;
    return {item.size, std::min(item.size, done), item.state, item.changedWhileSent};
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

Task<TransferEngine::Walked> TransferEngine::walk(std::filesystem::path given, Walker::Options options) {
    Walked walked;
    if (given.empty()) {
        walked.failure = "An empty path names nothing.";
        co_return walked;
    }
    const std::stop_token stop = co_await thisToken();
    auto work = [&] { return Walker::walk(walked.path, host_.volumes, options, stop); };
    try {
        walked.path = standardised(given);
        walked.found = co_await host_.pool.run(work);
    } catch (const std::filesystem::filesystem_error& error) {
        walked.failure = FileError("Could not read", given, error.code().value()).what();
    } catch (const std::runtime_error& error) {
        walked.failure = error.what();
    }
    co_return walked;
}

Task<TransferEngine::Added> TransferEngine::add(std::vector<std::filesystem::path> paths,
                                                Walker::Options options) {
    assertOnExecutor();
    std::vector<Walked> walks;
    for (const std::filesystem::path& path : paths) {
        walks.push_back(co_await walk(path, options));
        co_await checkCancellation();
    }

    Added added;
    if (quitting_) {
        for (const Walked& walked : walks)
            refuse(added, fmt::format("Not added, since this run is ending: {}", walked.path.string()),
                   false);
        co_return added;
    }
    ensureJob("", "", "");
    std::vector<const Walked*> again;
    for (const Walked& walked : walks) {
        const TransferEntry* entry = entryAt(walked.path);
        if (entry != nullptr) added.entries.push_back(entry->id);
        if (!walked.found) {
            refuse(added, fmt::format("Could not add {}: {}", walked.path.string(), walked.failure),
                   entry != nullptr);
            continue;
        }
        const std::vector<Walker::PassedOver>& passed = walked.found->passedOver;
        added.passedOver.insert(added.passedOver.end(), passed.begin(), passed.end());
        if (entry != nullptr) {
            again.push_back(&walked);
        } else {
            added.entries.push_back(append(walked.path, *walked.found));
            added.items += static_cast<int>(walked.found->files.size());
        }
    }
    indexNewItems();
    lookThroughAgain(again, added);
    takeUpNewItems();
    co_return added;
}

void TransferEngine::refuse(Added& added, std::string sentence, bool isInQueue) {
    log_.write(sentence);
    added.notAdded.push_back({std::move(sentence), isInQueue});
}

bool TransferEngine::addWalked(const std::filesystem::path& given, const Walker::Result& found) {
    assertOnExecutor();
    if (quitting_) return false;
    ensureJob("", "", "");
    const std::filesystem::path path = standardised(given);
    if (entryAt(path) != nullptr) return false;
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

TransferEntry* TransferEngine::entryAt(const std::filesystem::path& path) {
    const auto place = entryPlaces_.find(path.native());
    return place == entryPlaces_.end() ? nullptr : &job_->entries[place->second];
}

UUID TransferEngine::append(const std::filesystem::path& path, const Walker::Result& found) {
    TransferEntry entry;
    entry.id = UUID::random();
    entry.localPath = path.string();
    entry.name = path.filename().string();
    entry.isFolder = found.isFolder;
    entry.fileCount = static_cast<std::int64_t>(found.files.size());
    entry.totalBytes = found.totalBytes();
    entry.volumeName = found.volumeName;
    entry.addedAt = now();

    std::size_t needed = job_->items.size() + found.files.size();
    if (needed > job_->items.capacity()) job_->items.reserve(std::max(needed, job_->items.size() * 3 / 2));
    for (const Walker::Found& file : found.files)
        appendItem(entry, file);
    if (job_->title.empty()) job_->title = entry.name;
    log_.write(fmt::format("Added {}: {}, {}{}", entry.name, Format::count(entry.fileCount, "file"),
                           Format::bytes(entry.totalBytes),
                           entry.volumeName ? fmt::format(" from \"{}\"", *entry.volumeName) : ""));
    entryPlaces_.emplace(entry.localPath, job_->entries.size());
    totals_.addEntry(entry.id);
    job_->entries.push_back(std::move(entry));
    return job_->entries.back().id;
}

void TransferEngine::appendItem(const TransferEntry& entry, const Walker::Found& file) {
    TransferItem item;
    item.id = UUID::random();
    item.entryID = entry.id;
    // The path of a file begins with the entry's name, and so what is before that name stands before it too.
    item.localPath.assign(entry.localPath, 0, entry.localPath.size() - entry.name.size());
    item.localPath += file.relativePath;
    item.relativePath = file.relativePath;
    item.size = file.size;
    item.mtime = file.mtime;
    job_->items.push_back(std::move(item));
}

bool TransferEngine::queueAfresh(const TransferItem& known, const Walker::Found& file) {
    const bool isUnderWay = known.state == ItemState::queued || isInFlight(known.state);
    const bool isAsItWas = FileStamp{known.size, known.mtime} == FileStamp{file.size, file.mtime};
    // What is under way is looked at when its turn comes and when it lands, and what a person is to decide
    // about when it is decided.
    if (isUnderWay || isAsItWas || known.state == ItemState::conflict) return false;
    set(known.id, [&file](TransferItem& item) { item.startAfresh({file.size, file.mtime}); });
    return true;
}

void TransferEngine::lookThroughAgain(const std::vector<const Walked*>& walks, Added& added) {
    if (walks.empty()) return;
    struct Known {
        /// How much of a path stands before the entry's name.
        std::size_t around = 0;
        std::unordered_map<std::string_view, std::size_t> places{};
    };
    std::unordered_map<UUID, Known> known;
    for (const Walked* walked : walks) {
        const TransferEntry& entry = *entryAt(walked->path);
        known.try_emplace(entry.id, Known{entry.localPath.size() - entry.name.size()});
    }
    for (std::size_t place = 0; place < job_->items.size(); ++place) {
        const TransferItem& item = job_->items[place];
        const auto entry = known.find(item.entryID);
        if (entry == known.end()) continue;
        // By where it lies here: in the vark it may go by another name.
        const std::string_view path = item.localPath;
        entry->second.places.emplace(path.substr(std::min(entry->second.around, path.size())), place);
    }
    std::vector<std::pair<TransferEntry*, const Walker::Found*>> arrivals;
    for (const Walked* walked : walks) {
        TransferEntry& entry = *entryAt(walked->path);
        int arrived = 0;
        int changed = 0;
        // Nothing when the same path is given for the second time.
        if (auto there = known.extract(entry.id)) {
            const auto& places = there.mapped().places;
            for (const Walker::Found& file : walked->found->files) {
                const auto place = places.find(file.relativePath);
                if (place == places.end()) {
                    arrivals.emplace_back(&entry, &file);
                    ++arrived;
                } else if (queueAfresh(job_->items[place->second], file)) {
                    ++changed;
                }
            }
        }
        added.items += arrived;
        added.again += changed;
        if (arrived + changed > 0) {
            log_.write(fmt::format("Looked through {} again: {} new, {} changed", entry.localPath,
                                   Format::count(arrived, "file"), changed));
        } else {
            refuse(added, "Already in the queue: " + entry.localPath, true);
        }
    }
    for (const auto& [entry, file] : arrivals) {
        entry->fileCount += 1;
        entry->totalBytes += file->size;
        appendItem(*entry, *file);
    }
}

void TransferEngine::remove(const std::unordered_set<UUID>& entryIDs) {
    assertOnExecutor();
    if (job_) removeEntries(entryIDs);
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

void TransferEngine::leaveOut(const std::vector<std::string>& sources) {
    assertOnExecutor();
    if (!job_ || !job_->ingest) return;
    IngestInfo& ingest = *job_->ingest;
    for (const std::string& source : sources) {
        if (!ingest.leavesOut(source)) ingest.leftOut.push_back(source);
    }
    removeItems([&](const TransferItem& item) {
        return !isFinished(item.state) && ingest.leavesOut(ingest.source(item.localPath));
    });
    log_.write(fmt::format("Left out of {}: {}", ingest.drive, fmt::join(sources, ", ")));
    listHasShrunk();
}

void TransferEngine::removeEntries(const std::unordered_set<UUID>& entryIDs) {
    removeItems([&](const TransferItem& item) {
        if (!entryIDs.contains(item.entryID)) return false;
        if (job_->ingest) job_->ingest->keepAccountOf(item);
        return true;
    });
    std::erase_if(job_->entries, [&](const TransferEntry& entry) {
        if (!entryIDs.contains(entry.id)) return false;
        log_.write(fmt::format("Removed {} from the queue", entry.name));
        return true;
    });
    listHasShrunk();
}

template <class Goes>
void TransferEngine::removeItems(Goes goes) {
    std::vector<std::string> uploads;
    std::erase_if(job_->items, [&](const TransferItem& item) {
        if (!goes(item)) return false;
        if (auto active = tasks_.find(item.id); active != tasks_.end()) {
            active->second.task.cancel();
            tasks_.erase(active);
        }
        if (!isFinished(item.state) && item.uploadID) uploads.push_back(*item.uploadID);
        return true;
    });
    cancelOnServer(std::move(uploads));
}

void TransferEngine::listHasShrunk() {
    rebuildIndex();
    samples_.clear();
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
    auto cancelOne = [](std::shared_ptr<VarkAPI> vark, std::string uploadID) -> Task<void> {
        try {
            co_await vark->cancel(uploadID);
        } catch (const VarkAPIError&) {
            // The vark drops parts that nobody finishes by itself, in time.
        }
    };
    auto cancel = [&](std::string uploadID) { return cancelOne(api, std::move(uploadID)); };
    co_await forEachBounded(std::move(uploadIDs), cancelsAtOnce, cancel);
}

Task<void> TransferEngine::serverCancelsDone() {
    std::vector<TaskHandle<void>> cancels = serverCancels_;
    for (const TaskHandle<void>& cancel : cancels)
        co_await cancel.value();
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
            item.standing.reset();
        });
        log_.write(fmt::format("Will replace {} in the vark", relativePath));
    } else {
        set(itemID, [this](TransferItem& item) {
            item.state = ItemState::skipped;
            item.standing.reset();
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
    for (const std::size_t place : conflicts_) {
        const TransferItem& item = job_->items[place];
        if (!entryID || item.entryID == *entryID) waiting.push_back(item.id);
    }
    for (const UUID& id : waiting)
        resolveConflict(id, replace);
}

void TransferEngine::retryFailed() {
    assertOnExecutor();
    if (!job_) return;
    std::vector<UUID> failed;
    for (const std::size_t place : failed_)
        failed.push_back(job_->items[place].id);
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
