#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VarkApp/Pace.h"
#include "VarkApp/Queue/CardClosed.h"
#include "VarkApp/Queue/IngestDesk.h"
#include "VarkApp/Queue/QueueDesk.h"
#include "VarkApp/Queue/QueueHolder.h"
#include "VarkApp/Queue/RequestFolder.h"
#include "VarkApp/Queue/SettledFile.h"
#include "VarkCore/Activity/ActivityEntry.h"
#include "VarkCore/Concurrency/AsyncSemaphore.h"
#include "VarkCore/LAN/NodeBrowser.h"
#include "VarkCore/Services/FolderWatch.h"

namespace vark::app {

/// Whoever shows a session. Called on its executor; `settled` and `changed` in the middle of the engine's
/// work, so they take notes and look later.
class SessionListener {
  public:
    virtual ~SessionListener() = default;
    virtual void settled(const SettledFile& file) = 0;
    /// What a person should know of.
    virtual void said(const Said& said) = 0;
    /// A call or a piece of a file did not get through, and is tried again by itself.
    virtual void triedAgain(const TransferEngine::TriedAgain& what) = 0;
    /// The queue, how far it has come, or what stops it. Often, while bytes go.
    virtual void changed() = 0;
    /// Nothing more becomes of the queue, or there is none, until somebody does something. Once, until there
    /// is something to do again.
    virtual void allSettled() = 0;
    /// Before `allSettled`.
    virtual void cardClosed(const CardClosed& card) = 0;
    /// For good, as far as can be known: it is not tried again before `Session::tokenMayBeGood`.
    virtual void tokenRefused(const Said& why) = 0;
    virtual void tokenGood() = 0;
    /// This machine has no token for this vark any more.
    virtual void connectionGone() = 0;
    /// The session cannot go on, for a reason that nothing foresees.
    virtual void brokenOff(const Said& why) = 0;
};

/// The application while it is connected to one vark: it owns the engine, answers what other processes ask
/// through the request folder, judges a token that is refused, tells the vark of a card, and notes what was
/// sent. Whoever made it holds the queue's lock with it, and touches the engine through it and its const view
/// alone. On its executor only.
///
/// Its life goes one way: `open`, `start`, `close`, end. Each is called once. It sleeps while nothing moves.
class Session final : QueueObserver {
  public:
    Session(Surroundings& surroundings, const SharedConnection& connection, QueueLock lock, const Pace& pace,
            SessionListener& listener);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Loads the queue, and answers other processes from then on. One that cannot be read is kept aside if a
    /// new one may take its place; otherwise it stays, and this fails, as it does when no copy can be kept:
    /// with a `Failure`.
    void open(bool mayBeginAnew);
    /// Tells the vark of a card whose files had all settled when an earlier run ended. Gives why it could not
    /// be told, and never fails.
    Task<std::optional<Said>> settleAccounts();
    /// From its end on files go, unless the queue is for another vark: then it stands until that changes.
    Task<void> start();
    /// Saves the queue before anything else, takes on nothing more, and returns when all of its work has
    /// ended. What is lost without it, in a process that is killed, is nothing.
    Task<void> close();

    /// What a window, a key or another process asks for: the one way to change the queue. Cancelled, it
    /// breaks off a walk and adds nothing.
    Task<QueueAnswer> carryOut(QueueRequest request);
    /// Puts what its owner was asked to send into the queue, and returns once that is saved or cannot be: a
    /// save that fails is told of by `said` alone.
    Task<QueueAnswer> take(QueueRequest request);
    Task<IngestDesk::Opening> bringIn(IngestWish wish);
    void setPace(const Pace& pace);
    /// What becomes of files that differ from those in the vark, where nothing is wished of their entries;
    /// without a value a person decides. Before `start`.
    void setUsualRule(std::optional<ConflictRule> rule) { desk_.setUsualRule(rule); }
    void hold(const std::string& kind, const std::string& why) { engine_.setHold(kind, why); }
    void release(const std::string& kind) { engine_.clearHold(kind); }
    /// There is a new record, the network is back, the machine has woken, or a person says so.
    void tokenMayBeGood();
    /// Brings in cards that other processes ask for, from then on; otherwise they are refused.
    void takeCardsOfOthers() { takesCardsOfOthers_ = true; }

    const TransferEngine& engine() const { return engine_; }
    const QueueDesk& desk() const { return desk_; }
    /// The card that the queue comes from, if there is one.
    const IngestInfo* card() const { return ingest_.ingest(); }

  private:
    /// Counts what an end would cut off; all has settled only when there is none.
    class Busy;

    // What it is told.
    void changed(std::size_t position) override;
    void appended(std::size_t first, std::size_t count) override;
    void renewed() override;
    void heard(const TransferEngine::Event& event);
    void fileSettled(const TransferItem& item);

    // Its errands.
    TaskHandle<void> undertake(Task<void> errand);
    Task<void> watched(Task<void> errand);
    Task<void> lookLater();
    void lookWhetherSettled();
    void goIfItMay();
    Task<void> closeCard();

    // Other processes.
    void answerRequests();
    Task<void> answerLater();
    Task<void> serve(RequestFolder::Taken taken);
    Task<QueueAnswer> bringInFor(QueueRequest request);

    // The token, and what it allows.
    Task<void> recoverToken(std::vector<std::chrono::seconds> waits, std::optional<std::string> refusal);
    Task<void> keepLevelFresh();

    // The card.
    void watchVolumes();
    Task<void> lookForTheCard();

    void setDamagedQueueAside();
    void tellOfTrouble();
    Task<void> decideAsWished();
    Task<void> noteSoonWhatWasSent();
    void noteWhatWasSent();

    const QueueLock lock_;
    Surroundings& surroundings_;
    SessionListener& listener_;
    const std::shared_ptr<VarkAPI> api_;
    const RequestFolder requests_;
    TransferEngine engine_;
    QueueDesk desk_;
    IngestDesk ingest_;
    const std::unique_ptr<ServiceBrowser> services_;
    NodeBrowser nodes_;

    bool isStarted_ = false;
    bool isClosing_ = false;
    int busy_ = 0;
    /// Since the queue changed last.
    bool isSettledTold_ = false;
    bool takesCardsOfOthers_ = false;
    /// How the queue's card was closed, for as long as nothing has changed since.
    std::optional<CardClosed> cardClosed_;
    std::vector<TaskHandle<void>> errands_;
    /// Held by whoever adds to the queue or clears it.
    AsyncSemaphore adding_{1};
    TaskHandle<void> recovering_;
    TaskHandle<void> keepingLevel_;
    TaskHandle<void> deciding_;
    std::size_t refusals_ = 0;  // Since anything has landed.
    Instant levelIsDue_;
    /// Not yet in the list of activity.
    std::vector<ActivityEntry> sent_;
    std::optional<Date> outageToldOf_;
    bool toldOfSaving_ = false;

    TaskScope scope_;  // Its tasks use all of the above.
    // Last: they start tasks.
    std::unique_ptr<VolumeWatch> volumes_;
    std::unique_ptr<FolderWatch> requestWatch_;
};

}  // namespace vark::app
