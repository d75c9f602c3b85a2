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
#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/Concurrency/TaskGroup.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkCore/Errors/VarkAPIError.h"
#include "VarkCore/Foundation/Time/Calendar.h"
#include "VarkCore/Services/ClockWatch.h"
#include "VarkCore/Services/PathMonitor.h"
#include "VarkCore/Services/Volumes.h"
#include "VarkCore/Transfer/ChunkRoom.h"
#include "VarkCore/Transfer/ConflictRule.h"
#include "VarkCore/Transfer/OfficeHours.h"
#include "VarkCore/Transfer/Queue/IndexSet.h"
#include "VarkCore/Transfer/Queue/QueueModel.h"
#include "VarkCore/Transfer/Queue/QueueObserver.h"
#include "VarkCore/Transfer/Queue/QueueStore.h"
#include "VarkCore/Transfer/Queue/QueueTotals.h"
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
/// for each item up to a limit, counts, and saves. Built and owned by the application. While nothing moves it
/// sleeps: no timer of its own runs then but the one to the next office hour.
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
        /// For hashing, walking and every other look at a person's files.
        BlockingPool& pool;
        /// For the writing of the saved queue alone, one thread: so neither waits for the other's disk.
        BlockingPool& savingPool;
        const Volumes& volumes;
        /// Asked once, by the first `start` that is to watch the network.
        std::function<std::unique_ptr<PathMonitor>()> makePathMonitor;
        /// Asked once, when hours are to be kept for the first time.
        std::function<std::unique_ptr<ClockWatch>()> makeClockWatch;
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
        /// Whether anything has landed since the refusal before this one. Without that, to go on with a good
        /// token leads here again.
        bool hadProgress = true;
    };
    struct NoToken {};
    /// What stops the queue, whether the vark is out of reach, or whether the queue can be saved. Told of as
    /// it changes, in the middle of the engine's work.
    struct StateChanged {};
    /// A call or a chunk that did not get through is sent again after a while.
    struct TriedAgain {
        /// What it is about: "Chunk 3 of A.mov".
        std::string what;
        /// A sentence.
        std::string why;
        int attempt = 1;
        /// Seconds.
        double after = 0;
    };
    using Event =
        std::variant<JobFinished, ItemFailed, DecisionNeeded, SignedOut, NoToken, StateChanged, TriedAgain>;

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
    /// How long a vark is waited for, beyond `maxAttempts`, that nothing at all gets through to: so that a
    /// night without it fails no queue.
    Duration patience = std::chrono::hours(24);
    /// How many chunks are on their way at once follows the rate (those that arrive in some 10 s, at least
    /// one), up to the given slots.
    bool chunksFollowTheRate = false;
    std::function<void(const Event&)> onEvent;
    /// Told of each item as it becomes `verified`, `conflict`, `skipped` or `failed`. Must not call back.
    std::function<void(const TransferItem&)> onSettled;
    QueueObserver* observer = nullptr;
    void setOfficeHours(const OfficeHours& hours);
    /// Hours that differ from day to day: asked for at the end of those that it gave, and at midnight.
    void setOfficeHours(std::function<OfficeHours(Date)> at);

    // Running, holding and stopping.

    /// Loads the saved queue. It may be changed from then on; nothing is sent before `start`.
    void open();
    void start(bool watchNetwork);
    void setHold(const std::string& kind, const std::string& reason);
    void clearHold(const std::string& kind);
    void pause();
    void resume();
    void pauseBecauseTheVarkRefused(const std::string& reason);
    bool resumeIfTheVarkPausedIt();
    /// Stops everything before the application exits, and waits for nothing. `flush` comes after it.
    void pauseForQuit();
    /// A card that is brought in may have come or gone. It is looked for on the pool; what comes of that
    /// comes a little later.
    void lookForTheDrive();

    // Saving. The engine does it by itself, within a second of each change, and tries again what fails.

    /// Saves now, on this thread. Whether the disk has what memory has.
    bool flush();
    /// Returns when all that had been changed when it was called is on the disk (true), or could not be
    /// written (false). Joins a save that is due already.
    Task<bool> saved();
    /// Why the last save failed, as a finished sentence that names the file; nothing while saving works.
    const std::optional<std::string>& saveFailure() const { return saveFailure_; }

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
        /// New in the queue.
        int items = 0;
        /// In the queue before, changed since they had settled, and queued afresh.
        int again = 0;
        /// Of every given path that stands in the queue now, also of those that did before.
        std::vector<UUID> entries;
        /// Of all that was walked.
        std::vector<Walker::PassedOver> passedOver;
        std::vector<NotAdded> notAdded;
    };
    /// Walks all paths, then puts what was found into the queue: cancelled before that, it adds nothing. A
    /// path that is in the queue already is looked through again: new files join its entry, and settled ones
    /// whose size or time is another than what was sent are queued afresh. Refuses after `pauseForQuit`.
    Task<Added> add(std::vector<std::filesystem::path> paths, Walker::Options options = {});
    /// Adds what a walk has found, less what the caller has taken out of it. False when it is in the queue
    /// already.
    bool addWalked(const std::filesystem::path& given, const Walker::Result& found);
    void remove(const UUID& entryID) { remove(std::unordered_set<UUID>{entryID}); }
    void remove(const std::unordered_set<UUID>& entryIDs);
    /// Of a card that is brought in: what of these paths has not landed leaves the queue, and counts as left
    /// out.
    void leaveOut(const std::vector<std::string>& sources);
    void clearFinished();
    void clearAll();
    /// Returns when the vark has been told of every upload that was given up so far. Cancelled, the telling
    /// goes on until the engine ends.
    Task<void> serverCancelsDone();

    void resolveConflict(const UUID& itemID, bool replace);
    void resolveAllConflicts(const std::optional<UUID>& entryID, bool replace);
    /// Decides by a rule. False when the item waits for no decision, or the rule cannot tell.
    bool decide(const UUID& itemID, ConflictRule rule);
    /// The same for all that wait, of one entry or of all. Gives how many were decided.
    std::int64_t decideAll(const std::optional<UUID>& entryID, ConflictRule rule);
    void retryFailed();

    // What is published.

    const std::optional<TransferJob>& job() const { return job_; }
    const TransferItem* item(const UUID& id) const;
    const Overall& overall() const { return overall_; }
    const std::unordered_map<UUID, EntryProgress>& entryProgress() const { return totals_.entries(); }
    const std::optional<std::string>& hold() const { return hold_; }
    /// Positions in the job's list of items.
    const IndexSet& failedItems() const { return failed_; }
    const IndexSet& conflicts() const { return conflicts_; }

    /// The vark is out of reach.
    struct Outage {
        Date since;
        /// A finished sentence.
        std::string why;
        Date nextTry;
    };
    /// Since the first call that did not get through, until one does or nothing is being tried any more.
    const std::optional<Outage>& outage() const { return outage_; }
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
    void keepTicking();
    Task<void> ticking();
    Task<void> networkChanged(bool usable);
    void keepHours(bool force);
    Task<void> keepingHours();
    Task<void> clockJumped();
    /// When the hours are to be looked at again; nothing when there are none to be kept.
    std::optional<Date> nextBoundary() const;
    void reconsiderSchedule(bool force);
    void updateHold();
    void cancelAllTasks();
    void returnInFlightToQueued();
    void pump();
    void finishIfIdle();
    Task<void> lookingForTheDrive();
    void driveIsThere(bool isThere);
    Task<bool> driveIsGone();
    void holdForTheDrive();

    // Saving (EngineSaving.cpp).
    void scheduleSave();
    void keepSaving();
    Task<void> savingWhatChanges();
    Task<void> savingOnce();
    Task<void> save();
    /// A save of the first so many changes has ended.
    void saveEnded(std::uint64_t includes, std::optional<std::string> failure);

    // The queue (EngineQueue.cpp).
    /// After items have gone: everything that is derived from the list is made anew.
    void rebuildIndex();
    void indexEntries();
    /// After items have been appended.
    void indexNewItems();
    void indexItems();
    void takeUpNewItems();
    /// Keeps the sets of positions right.
    void sortIn(std::size_t place);
    /// What the item adds to the totals now.
    QueueTotals::Share shareOf(const TransferItem& item) const;
    /// Changes what is told of a running item's progress, and keeps the totals right.
    template <class Change>
    void setProgress(const UUID& id, Change change);
    void removeEntries(const std::unordered_set<UUID>& entryIDs);
    /// What is derived from the list is to be made anew after it.
    template <class Goes>
    void removeItems(Goes goes);
    void listHasShrunk();
    std::optional<std::size_t> position(const UUID& id) const;
    /// Changes an item in place and keeps the totals right. An item that has left the queue is not found, and
    /// the change is dropped: so a task that outlives its item does no harm.
    template <class Change>
    void set(const UUID& id, Change change);
    struct Walked {
        std::filesystem::path path;
        std::optional<Walker::Result> found;
        /// Why there is nothing.
        std::string failure;
    };
    Task<Walked> walk(std::filesystem::path given, Walker::Options options);
    /// Null when the path is not in the queue.
    TransferEntry* entryAt(const std::filesystem::path& path);
    /// The new entry.
    UUID append(const std::filesystem::path& path, const Walker::Result& found);
    void appendItem(const TransferEntry& entry, const Walker::Found& file);
    void refuse(Added& added, std::string sentence, bool isInQueue);
    /// Takes in what has come into entries of the queue, or changed there, in one pass over the items.
    void lookThroughAgain(const std::vector<const Walked*>& walks, Added& added);
    /// Whether it did: the item had settled, and the file is not as it was then.
    bool queueAfresh(const TransferItem& known, const Walker::Found& file);
    void cancelOnServer(std::vector<std::string> uploadIDs);
    Task<void> cancelUploads(std::shared_ptr<VarkAPI> api, std::vector<std::string> uploadIDs);

    // One item (ItemPipeline.cpp).
    Task<void> process(UUID id);
    Task<void> carry(UUID id);
    /// Sees to it that the item's hash, size and time are those of the file.
    Task<void> lookAt(UUID id, std::filesystem::path file);
    Task<void> hash(UUID id, std::filesystem::path file);
    /// Fails when the file cannot be sent any more, with the reason, or with `ContentChanged`.
    Task<void> requireUnchanged(UUID id, std::filesystem::path file);
    /// Whether something else lies there than what was hashed.
    Task<bool> hasChanged(UUID id, std::filesystem::path file);
    void landed(const UUID& id, const std::string& serverPath, bool hasChanged);
    void opened(const UUID& id, const std::string& serverPath, const BeginResult::Start& start,
                const ChunkPlan& plan, const std::vector<std::int64_t>& missing);
    void found(const UUID& id, const std::string& serverPath, bool hadUpload);
    void blocked(const UUID& id, const std::string& serverPath, const BeginResult::Conflict& standing);
    bool decide(const UUID& itemID, ConflictRule rule,
                const std::function<bool(const std::string&)>& isTaken);
    /// It is sent under another path.
    void putBeside(const UUID& itemID, const std::string& path);
    /// What lies in the place of the file is not what was hashed.
    struct ContentChanged {};
    /// Why an upload begins again.
    enum class Again : std::uint8_t { lost, changed };
    /// What the vark made of the file.
    Task<std::variant<UploadStatus, Again>> sendAndFinish(UUID id, std::shared_ptr<VarkAPI> api,
                                                          std::string serverPath, std::filesystem::path file,
                                                          BeginResult::Start start);
    Task<UploadStatus> finishAndWait(std::shared_ptr<VarkAPI> api, std::string uploadID);
    Task<void> settleFailure(UUID id, std::exception_ptr failure);
    /// Deals with every end but a failure of the item, and gives the sentence of such a one.
    std::optional<std::string> judge(const UUID& id, const std::exception_ptr& failure, bool cancelled);
    void backToQueued(const UUID& id);
    void fail(const UUID& id, const std::string& message);
    void taskEnded(const UUID& id);
    double backOff(int attempt) const;
    void tellOfTryAgain(const TriedAgain& again) const;
    /// Whether a call that has failed so many times, first at that time, is tried again.
    bool isTriedAgain(const VarkAPIError& error, int attempt, Date firstFailure) const;
    /// A gateway that answers in place of the vark counts as silence.
    static bool meansOutOfReach(const VarkAPIError& error);
    /// Its sentence, with the status if the vark's own words leave it out.
    static std::string said(const VarkAPIError& error);
    void didNotGetThrough(const VarkAPIError& error, double delay);
    void gotThrough() { outage_.reset(); }
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
    const std::shared_ptr<VarkAPI> api_;
    QueueStore& store_;
    TransferLog& log_;
    std::function<OfficeHours(Date)> hoursAt_;

    std::optional<TransferJob> job_;
    boost::unordered_flat_map<UUID, std::uint32_t, std::hash<UUID>> itemIndex_;
    std::unordered_map<std::string, std::size_t> entryPlaces_;  // By path.
    // Positions of items, by state; `waiting_` of those that are `queued` and have no task.
    IndexSet waiting_;
    IndexSet failed_;
    IndexSet conflicts_;
    QueueTotals totals_;
    Overall overall_;

    std::map<std::string, std::string> holds_;
    std::optional<std::string> hold_;
    std::int64_t bytesMoved_ = 0;                           // By this run, of chunks under way and landed.
    std::deque<std::pair<Instant, std::int64_t>> samples_;  // Of `bytesMoved_`.
    std::size_t indexed_ = 0;  // How many of the job's items are in `itemIndex_`.
    std::uint64_t started_ = 0;
    bool worked_ = false;
    bool mayStart_ = false;
    bool quitting_ = false;  // Nothing is added or started any more, and nothing more is saved by itself.

    std::optional<Outage> outage_;
    std::uint64_t progress_ = 0;  // Counts the chunks and files that landed.
    std::optional<std::uint64_t> progressAtRefusal_;

    // Each counts changes of the queue: all, those that a save has included, and those that the disk has.
    std::uint64_t changes_ = 0;
    std::uint64_t changesTried_ = 0;
    std::uint64_t changesOnDisk_ = 0;
    std::optional<std::string> saveFailure_;
    Duration saveRetryDelay_{};

    const std::size_t chunkWidth_;
    ChunkRoom chunkRoom_;
    std::unordered_map<UUID, Active> tasks_;
    TaskHandle<void> ticker_;
    TaskHandle<void> hoursKeeper_;
    std::optional<TaskHandle<void>> saving_;
    std::optional<TaskHandle<void>> saveUnderWay_;
    std::optional<TaskHandle<void>> driveLook_;
    bool lookAgain_ = false;
    std::vector<TaskHandle<void>> serverCancels_;

    TaskScope scope_;  // Its end waits for every task, and the tasks use all of the above.
    // Last: their threads start tasks.
    std::unique_ptr<PathMonitor> monitor_;
    std::unique_ptr<ClockWatch> clockWatch_;
};

template <class Change>
void TransferEngine::setProgress(const UUID& id, Change change) {
    auto active = tasks_.find(id);
    const std::optional<std::size_t> place = position(id);
    if (active == tasks_.end() || !place) return;
    const TransferItem& item = job_->items[*place];
    totals_.remove(item.entryID, shareOf(item));
    change(active->second);
    totals_.add(item.entryID, shareOf(item));
    if (observer != nullptr) observer->changed(*place);
}

template <class Change>
void TransferEngine::set(const UUID& id, Change change) {
    std::optional<std::size_t> place = position(id);
    if (!place) return;
    TransferItem& item = job_->items[*place];
    auto active = tasks_.find(id);
    const ItemState before = item.state;
    totals_.remove(item.entryID, shareOf(item));
    change(item);
    if (active != tasks_.end()) active->second.heldBytes = item.bytesDone();
    totals_.add(item.entryID, shareOf(item));
    sortIn(*place);
    if (observer != nullptr) observer->changed(*place);
    const bool isSettled = item.state != ItemState::queued && !isInFlight(item.state);
    if (isSettled && item.state != before && onSettled) onSettled(item);
}

}  // namespace vark
