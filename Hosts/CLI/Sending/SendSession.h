#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "Hosts/CLI/CommandSurroundings.h"
#include "Hosts/CLI/Display/SendDisplay.h"
#include "VarkApp/Queue/IngestDesk.h"
#include "VarkApp/Queue/QueueDesk.h"
#include "VarkApp/Queue/RequestFolder.h"
#include "VarkApp/WorkingHours.h"
#include "VarkCore/Activity/ActivityEntry.h"
#include "VarkCore/Concurrency/AsyncSemaphore.h"
#include "VarkCore/LAN/NodeBrowser.h"

namespace vark::cli {

/// One run of `vark send`: the application while it lasts. It owns the engine, answers what other runs ask
/// through the request folder, and ends when all has settled, when the vark takes this machine's token no
/// longer, or when it is interrupted. Whoever made it holds the running lock, drives the executor until
/// `ended` has a value, and then lets it go; on the executor's thread, but for the construction.
///
/// Its life goes one way: it opens (takes in what it was given), sends, leaves, and has ended. Meanwhile
/// there are errands, whatever an end would cut off: the opening itself, requests, the judging of a token,
/// the closing of a card. It ends by itself only when there is none. It leaves at any time, and then saves
/// the queue before anything else, takes on nothing more, breaks off the errands, and speaks its last words
/// when they are over.
class SendSession {
  public:
    struct Settings {
        /// What to add; without anything named, and without a card, it carries on with the saved queue.
        QueueRequest add;
        std::optional<IngestWish> ingest;
        /// What to do with every conflict; without a value they wait for the person.
        std::optional<bool> replaceConflicts;
        std::int64_t bytesPerSecond = 0;
        std::optional<WorkingHours> workingHours;
        /// Without a value as many as the rate makes good use of.
        std::optional<int> chunksAtOnce;
        /// After it the run leaves, however far it has come.
        std::optional<Duration> timeout;
        /// Whether somebody sits at this terminal who can lift a pause.
        bool somebodyIsThere = true;
    };

    SendSession(CommandSurroundings& surroundings, const SharedConnection& connection, Settings settings,
                SendDisplay& display);
    ~SendSession();
    SendSession(const SendSession&) = delete;
    SendSession& operator=(const SendSession&) = delete;

    std::optional<ExitCode> ended() const {
        return life_ == Life::ended ? std::optional(ending_.code) : std::nullopt;
    }

    /// p pauses and resumes, r tries what failed again, q quits.
    void press(char key);
    void interrupt();
    /// From any thread: `press`, or `interrupt` without a key, as soon as the executor gets to it.
    void post(std::optional<char> key);

  private:
    enum class Life : std::uint8_t { opening, sending, leaving, ended };
    struct Ending {
        ExitCode code = ExitCode::allLanded;
        /// In place of the summary.
        std::optional<std::string> sentence{};
        /// Whether the sentence goes on with how to carry on.
        bool leavesWork = false;
        bool isSaved = true;
    };

    // Its life.
    bool isLeaving() const { return life_ == Life::leaving || life_ == Life::ended; }
    TaskHandle<void> undertake(Task<void> errand);
    bool isBusy();
    /// Leaves when the task fails, which nothing foresees.
    Task<void> watched(Task<void> task);
    void endWhenSettled();
    void finish(ExitCode code) { leave({.code = code}); }
    void breakOff(ExitCode code, const std::string& sentence) { leave({.code = code, .sentence = sentence}); }
    /// With work left for a later run.
    void stop(ExitCode code, const std::string& sentence) {
        leave({.code = code, .sentence = sentence, .leavesWork = true});
    }
    void leaveRefused(const QueueAnswer& answer);
    void leave(Ending ending);
    Task<void> speakLastWords();
    std::string howToCarryOn() const;
    Task<void> leaveAfter(Duration timeout);

    // Taking in.
    Task<void> open();
    Task<void> takeIn();
    void sayWhatWasNotAdded();
    Task<void> takeInCard();
    /// Tells the vark of a card whose files had all settled when an earlier run ended.
    Task<void> settleAccounts();
    void setDamagedQueueAside();
    bool addsSomething() const { return !settings_.add.named.empty() || settings_.ingest; }
    void noteWhatIsMine(const std::vector<std::string>& added);
    QueueView mine() const { return desk_.viewOf(mine_); }

    // The beat, and what comes from outside.
    Task<void> beating();
    void answerRequests();
    Task<void> serve(RequestFolder::Taken taken);
    void heard(const TransferEngine::Event& event);
    Task<void> recoverToken(std::vector<std::chrono::seconds> waits, std::optional<std::string> refusal);
    void keepLevelFresh();
    Task<void> learnLevel();
    Task<void> take(std::optional<char> key);
    /// Later, when the engine has come out of whatever it is doing.
    Task<void> endIfSettled();
    Task<void> closeIngest();
    void watchVolumes();
    Task<void> lookForTheCard();

    // What is told.
    void fileSettled(const TransferItem& item);
    void tellOfWhatWasSent();
    void tellOfTrouble();
    void leaveWhenPausedUnseen();
    QueueView glance() const { return QueueView::glance(engine_, surroundings_.date()); }
    void keepWorkingHours();

    CommandSurroundings& surroundings_;
    SendDisplay& display_;
    const Settings settings_;
    std::shared_ptr<VarkAPI> api_;
    RequestFolder requests_;
    TransferEngine engine_;
    QueueDesk desk_;
    IngestDesk ingest_;
    const std::unique_ptr<ServiceBrowser> services_;
    NodeBrowser nodes_;

    Life life_ = Life::opening;
    Ending ending_;
    std::vector<TaskHandle<void>> errands_;
    /// Held by whoever adds to the queue or clears it.
    AsyncSemaphore adding_{1};
    TaskHandle<void> recovering_;

    /// The entries whose end is this run's: those that it was to add, and those that it found unfinished.
    std::vector<UUID> mine_;
    LeftOut leftOut_;
    bool wasLeftBehind_ = false;
    bool settledAnything_ = false;
    /// Not yet in the list of activity, which is written once a beat.
    std::vector<ActivityEntry> sent_;
    std::size_t refusals_ = 0;  // Since anything has landed.
    Instant levelIsDue_;
    std::optional<Instant> pausedSince_;
    std::optional<Date> outageToldOf_;
    bool toldOfSaving_ = false;

    TaskScope scope_;                       // Its tasks use all of the above.
    std::unique_ptr<VolumeWatch> volumes_;  // Last: it starts tasks.
};

}  // namespace vark::cli
