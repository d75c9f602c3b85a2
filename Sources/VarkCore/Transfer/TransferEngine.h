#pragma once

#include <boost/unordered/unordered_flat_map.hpp>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <variant>
#include <vector>

#include "VarkCore/API/VarkAPI.h"
#include "VarkCore/API/VarkAPIError.h"
#include "VarkCore/Concurrency/AsyncSemaphore.h"
#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/Concurrency/TaskGroup.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkCore/Foundation/Calendar.h"
#include "VarkCore/Services/PathMonitor.h"
#include "VarkCore/Services/Volumes.h"
#include "VarkCore/Transfer/IndexSet.h"
#include "VarkCore/Transfer/OfficeHours.h"
#include "VarkCore/Transfer/QueueModel.h"
#include "VarkCore/Transfer/QueueStore.h"
#include "VarkCore/Transfer/QueueTotals.h"
#include "VarkCore/Transfer/TransferLog.h"
#include "VarkCore/Transfer/Walker.h"
#include "VarkCore/Upload/ChunkPlan.h"
#include "VarkCore/Upload/TokenBucket.h"

namespace vark {

/// Why the engine itself gave an item up; the sentence is for the person.
class EngineError : public std::runtime_error {
  public:
    static EngineError gaveUp(const std::string& text) { return EngineError(text); }
    static EngineError missing() { return EngineError("The file is no longer where it was."); }

  private:
    using std::runtime_error::runtime_error;
};

/// The one owner of the queue of uploads: it loads the saved job, decides when work may run, runs one task
/// for each item up to a limit, counts, and saves. Built and owned by the application.
///
/// Every field is touched on `Host::executor` alone, every operation is called there and asserts it; what
/// runs elsewhere (hashing, reading, the network) hops back. The state of an item is all that outlives its
/// task: whatever ends a task leaves the item in a state from which the next run or a person can take it up.
/// Its end cancels all tasks and waits for them; `pauseForQuit` and `flush` before it, so that the queue on
/// disk is the last word.
class TransferEngine {
  public:
    /// What the engine needs of the process that it runs in. All of it outlives the engine.
    struct Host {
        Executor& executor;
        Clock& clock;
        WallClock date;
        Calendar calendar;
        /// For hashing, walking and the writing of the saved queue.
        BlockingPool& pool;
        const Volumes& volumes;
        /// Asked once, by the first `start` that is to watch the network.
        std::function<std::unique_ptr<PathMonitor>()> makePathMonitor;
    };

    struct JobFinished {
        std::int64_t verified, failed, skipped, conflicts;
    };
    struct ItemFailed {
        std::string name, error;
    };
    struct DecisionNeeded {
        std::string name;
    };
    struct SignedOut {
        RefusedToken refused;
    };
    struct NoToken {};
    using Event = std::variant<JobFinished, ItemFailed, DecisionNeeded, SignedOut, NoToken>;

    /// `chunkSlots` is how many chunks may be in flight at once, of all files together.
    TransferEngine(std::shared_ptr<VarkAPI> api, QueueStore& store, TransferLog& log, int chunkSlots,
                   Host host);
    ~TransferEngine();
    TransferEngine(const TransferEngine&) = delete;
    TransferEngine& operator=(const TransferEngine&) = delete;

    // What the owner may tune, before or while it runs.

    TokenBucket limiter{0};
    std::size_t maxConcurrentFiles = 4;
    double pollInterval = 1.0;  // Seconds.
    double retryBase = 2.0;     // Seconds.
    int maxAttempts = 6;
    std::function<void(const Event&)> onEvent;
    /// Told of each item as it becomes `verified`, `conflict`, `skipped` or `failed`. Must not call back.
    std::function<void(const TransferItem&)> onSettled;
    const OfficeHours& officeHours() const { return officeHours_; }
    void setOfficeHours(const OfficeHours& hours);
    /// Takes effect for tasks that start later.
    void setAPI(std::shared_ptr<VarkAPI> api) { api_ = std::move(api); }

    // Running, holding and stopping.

    void start(bool watchNetwork);
    void setHold(const std::string& kind, const std::string& reason);
    void clearHold(const std::string& kind);
    void pause();
    void resume();
    void pauseBecauseTheVarkRefused(const std::string& reason);
    bool resumeIfTheVarkPausedIt();
    /// Stops everything before the application exits. `flush` comes after it.
    void pauseForQuit();
    /// Saves now. A failure is swallowed: the queue in memory is right, and the next save tries again.
    void flush();
    void watchIngestDrive();
    void driveMayBeBack();

    // Changing the queue.

    void ensureJob(const std::string& title, const std::string& destination, const std::string& clientName);
    void setTitle(const std::string& title);
    void setDestination(const std::string& path);
    void setClientName(const std::string& name);
    void setIngest(const std::optional<IngestInfo>& info);
    void ingestReported();

    struct NotAdded {
        /// What was logged about the path.
        std::string sentence;
        bool isInQueue = false;
    };
    struct Added {
        int items = 0;
        std::vector<NotAdded> notAdded;
    };
    Task<Added> add(std::vector<std::filesystem::path> paths);
    /// Adds what a walk has found, less what the caller has taken out of it. False when it is in the queue
    /// already.
    bool addWalked(const std::filesystem::path& given, const Walker::Result& found);
    void remove(const UUID& entryID);
    void clearFinished();
    void clearAll();
    /// Returns when the vark has been told of every upload that was given up so far.
    Task<void> serverCancelsDone();

    void resolveConflict(const UUID& itemID, bool replace);
    void resolveAllConflicts(const std::optional<UUID>& entryID, bool replace);
    void retryFailed();

    // What is published.

    const std::optional<TransferJob>& job() const { return job_; }
    const TransferItem* item(const UUID& id) const;
    const Overall& overall() const { return overall_; }
    const std::unordered_map<UUID, EntryProgress>& entryProgress() const { return totals_.entries(); }
    const std::optional<std::string>& hold() const { return hold_; }
    /// The items that have a task, in the order in which the tasks were started.
    std::vector<UUID> activeItemIDs() const;
    std::int64_t hashingBytes(const UUID& id) const;
    std::int64_t inFlightBytes(const UUID& id) const;
    bool isRunning() const { return job_ && !job_->isPaused && !hold_; }
    bool isPaused() const { return job_ && job_->isPaused; }
    bool pausedByVark() const { return isPaused() && job_->pausedByVark.value_or(false); }
    void recompute();

  private:
    /// An item's task and what it has told of its progress. Gone when the task has ended or the item was
    /// removed.
    struct Active {
        TaskHandle<void> task;
        std::uint64_t startedAs = 0;
        std::map<std::int64_t, std::int64_t> partial;  // Bytes sent of each chunk in flight.
        std::int64_t inFlightBytes = 0;                // The sum of `partial`.
        std::int64_t heldBytes = 0;  // `bytesDone` of the item, which is dear to ask for often.
        std::int64_t hashingBytes = 0;
    };

    void assertOnExecutor() const;
    void send(const Event& event) const;
    Date now() const { return host_.date(); }

    // Lifecycle (TransferEngine.cpp).
    Task<void> ticking();
    Task<void> networkChanged(bool usable);
    void reconsiderSchedule(bool force);
    void updateHold();
    void cancelAllTasks();
    void returnInFlightToQueued();
    void pump();
    void finishIfIdle();
    void scheduleSave();
    Task<void> saveSoon();
    bool driveIsGone() const;
    void holdForTheDrive();

    // The queue (EngineQueue.cpp).
    /// After items have gone: everything that is derived from the list is made anew.
    void rebuildIndex();
    /// After items have been appended.
    void indexNewItems();
    void takeUpNewItems();
    /// What the item adds to the totals now.
    QueueTotals::Share shareOf(const TransferItem& item) const;
    /// Changes what is told of a running item's progress, and keeps the totals right.
    template <class Change>
    void setProgress(const UUID& id, Change change);
    void removeEntries(const std::unordered_set<UUID>& entryIDs);
    std::optional<std::size_t> position(const UUID& id) const;
    /// Changes an item in place and keeps the totals right. An item that has left the queue is not found, and
    /// the change is dropped: so a task that outlives its item does no harm.
    template <class Change>
    void set(const UUID& id, Change change);
    bool hasEntry(const std::string& path) const;
    void append(const std::filesystem::path& path, const Walker::Result& found);
    void cancelOnServer(std::vector<std::string> uploadIDs);
    Task<void> cancelUploads(std::shared_ptr<VarkAPI> api, std::vector<std::string> uploadIDs);

    // One item (ItemPipeline.cpp).
    Task<void> process(UUID id);
    Task<void> carry(UUID id);
    Task<void> hash(UUID id, std::filesystem::path file);
    void opened(const UUID& id, const std::string& serverPath, const BeginResult::Start& start,
                const ChunkPlan& plan, const std::vector<std::int64_t>& missing);
    void found(const UUID& id, const std::string& serverPath, bool hadUpload);
    void blocked(const UUID& id, const std::string& serverPath);
    /// What the vark made of the file, or nothing when it has lost the upload and it must begin again.
    Task<std::optional<UploadStatus>> sendAndFinish(UUID id, std::shared_ptr<VarkAPI> api,
                                                    std::string serverPath, std::filesystem::path file,
                                                    BeginResult::Start start);
    Task<UploadStatus> finishAndWait(std::shared_ptr<VarkAPI> api, std::string uploadID);
    void settleFailure(const UUID& id, const std::exception_ptr& failure, bool cancelled);
    void fail(const UUID& id, const std::string& message);
    void taskEnded(const UUID& id);
    double backOff(int attempt) const;
    template <class T, class Operation>
    Task<T> retrying(std::string label, Operation operation);

    // Its chunks (ChunkSending.cpp).
    Task<void> sendChunks(UUID id, std::shared_ptr<VarkAPI> api, std::string uploadID, ChunkPlan plan,
                          std::vector<std::int64_t> missing, std::filesystem::path file);
    Task<std::int64_t> sendChunk(UUID id, std::shared_ptr<VarkAPI> api, std::string uploadID,
                                 std::int64_t index, std::int64_t offset, std::int64_t length,
                                 std::filesystem::path file);
    void chunkLanded(const UUID& id, std::int64_t index, std::int64_t length);
    void forgetPartial(const UUID& id);
    void notePartial(const UUID& id, std::int64_t chunk, std::int64_t bytes);
    Task<void> reportPartial(UUID id, std::int64_t chunk, std::int64_t bytes);
    Task<void> reportHashing(UUID id, std::int64_t bytes);

    const Host host_;
    std::shared_ptr<VarkAPI> api_;
    QueueStore& store_;
    TransferLog& log_;
    OfficeHours officeHours_;

    std::optional<TransferJob> job_;
    boost::unordered_flat_map<UUID, std::uint32_t, std::hash<UUID>> itemIndex_;
    std::unordered_set<std::string> entryPaths_;
    IndexSet waiting_;  // Positions of items that are `queued` and have no task.
    QueueTotals totals_;
    Overall overall_;

    std::map<std::string, std::string> holds_;
    std::optional<std::string> hold_;
    std::deque<std::pair<Instant, std::int64_t>> samples_;
    std::size_t indexed_ = 0;  // How many of the job's items are in `itemIndex_`.
    std::uint64_t tick_ = 0;
    std::uint64_t started_ = 0;
    bool worked_ = false;
    bool quitting_ = false;  // Nothing is started any more, and nothing more is saved by itself.

    const std::size_t chunkWidth_;
    AsyncSemaphore chunkSlots_;
    std::unordered_map<UUID, Active> tasks_;
    std::optional<TaskHandle<void>> ticker_;
    std::optional<TaskHandle<void>> saveTask_;
    std::vector<TaskHandle<void>> serverCancels_;
    std::unique_ptr<PathMonitor> monitor_;

    TaskScope scope_;  // Last: its end waits for every task, and the tasks use all of the above.
};

template <class Change>
void TransferEngine::setProgress(const UUID& id, Change change) {
    auto active = tasks_.find(id);
    const TransferItem* item = this->item(id);
    if (active == tasks_.end() || item == nullptr) return;
    totals_.remove(item->entryID, shareOf(*item));
    change(active->second);
    totals_.add(item->entryID, shareOf(*item));
}

template <class Change>
void TransferEngine::set(const UUID& id, Change change) {
    std::optional<std::size_t> place = position(id);
    if (!place) return;
    TransferItem& item = job_->items[*place];
    auto active = tasks_.find(id);
    bool hasTask = active != tasks_.end();
    const ItemState before = item.state;
    totals_.remove(item.entryID, shareOf(item));
    change(item);
    if (hasTask) active->second.heldBytes = item.bytesDone();
    totals_.add(item.entryID, shareOf(item));
    if (item.state == ItemState::queued && !hasTask) {
        waiting_.insert(*place);
    } else {
        waiting_.erase(*place);
    }
    const bool isSettled = item.state != ItemState::queued && !isInFlight(item.state);
    if (isSettled && item.state != before && onSettled) onSettled(item);
}

}  // namespace vark
