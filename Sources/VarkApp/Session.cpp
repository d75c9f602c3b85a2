#include "VarkApp/Session.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "VarkCore/Actions/ActionLines.h"
#include "VarkCore/Activity/SharedActivity.h"
#include "VarkCore/Connection/SharedLevel.h"
#include "VarkCore/Foundation/Sentence.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::app {

namespace {

using std::chrono::seconds;
using Step = Next::Step;

constexpr int usualChunksAtOnce = 4;
/// A night without the vark is no reason to give a file up. Who cannot wait says so with a time-out.
constexpr Duration patience = std::chrono::hours(24);
/// How long after a refusal the token is tried again, each time, until something has landed.
const std::vector<seconds> waitsAfterRefusal = {seconds(2), seconds(8), seconds(30)};
const std::vector<seconds> atOnce = {seconds(0)};
/// What a device may do is believed for ten minutes after it was learned.
constexpr Duration levelLasts = std::chrono::minutes(9);
constexpr Duration betweenLooksAtTheLevel = std::chrono::seconds(1);
/// Lines of activity wait so long for others, which are written with them.
constexpr Duration activityWaits = std::chrono::milliseconds(250);

struct TokenVerdict {
    bool isGood = false;
    /// Whether the vark said so, or could not be asked.
    bool isSaid = false;
    std::string sentence;
};

Task<TokenVerdict> judgeToken(Surroundings& surroundings, std::shared_ptr<VarkAPI> api) {
    try {
        const WhoAmI who = co_await api->whoami();
        surroundings.learn(who);
    } catch (const VarkAPIError& error) {
        co_return TokenVerdict{false, error.isSignOut(), error.errorDescription()};
    }
    co_return TokenVerdict{true, true, ""};
}

/// Why the token is of no more use, when all tries are over.
Said whyRefused(const TokenVerdict& verdict, const std::optional<std::string>& refusal) {
    if (verdict.isGood)
        return fmt::format(
            "The vark knows this machine, and still refuses what is sent{} Ask whoever looks "
            "after the vark.",
            refusal && !refusal->empty() ? ": " + asSentence(*refusal) : ".");
    if (verdict.isSaid) return {asSentence(verdict.sentence), {{Step::connectAgain}}};
    return fmt::format("The vark refused this machine's token, and whether it still does cannot be asked: {}",
                       asSentence(verdict.sentence));
}

/// When what the device may do is to be asked for first.
Instant firstLevelDue(Surroundings& surroundings) {
    const std::optional<SharedLevel> level = SharedLevelStore::read(surroundings.sharedFolder());
    const Instant now = surroundings.clock.now();
    if (!level || !level->isFresh(surroundings.date())) return now;
    const Duration age = vark::seconds(surroundings.date() - level->at);
    return now + std::max(Duration(0), levelLasts - age);
}

}  // namespace

class Session::Busy {
  public:
    explicit Busy(Session& session) : session_(session) { ++session_.busy_; }
    ~Busy() {
        if (--session_.busy_ == 0) session_.scope_.start(session_.lookLater());
    }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;

  private:
    Session& session_;
};

Session::Session(Surroundings& surroundings, const SharedConnection& connection, QueueLock lock,
                 const Pace& pace, SessionListener& listener)
    : lock_(std::move(lock)),
      surroundings_(surroundings),
      listener_(listener),
      api_(surroundings.api(connection, pace.chunksAtOnce.value_or(usualChunksAtOnce))),
      requests_(surroundings.locations().requests()),
      engine_(api_, surroundings.store(), surroundings.log(), pace.chunksAtOnce.value_or(usualChunksAtOnce),
              surroundings.engineHost()),
      desk_(surroundings, engine_, api_, connection.rootPath, connection.clientName),
      ingest_(surroundings, engine_, desk_, api_),
      services_(surroundings.platform.makeServiceBrowser(surroundings.executor)),
      nodes_(surroundings.lanToBrowse(), {surroundings.executor, surroundings.clock, surroundings.date,
                                          *services_, surroundings.pool(), surroundings.sharedFolder()}),
      levelIsDue_(firstLevelDue(surroundings)),
      scope_(surroundings.executor, surroundings.clock) {
    setPace(pace);
    engine_.patience = patience;
    engine_.chunksFollowTheRate = !pace.chunksAtOnce;
    engine_.onEvent = [this](const TransferEngine::Event& event) { heard(event); };
    engine_.onSettled = [this](const TransferItem& item) { fileSettled(item); };
    engine_.observer = this;
    nodes_.log = [this](const std::string& sentence) { surroundings_.log().write(sentence); };
}

Session::~Session() {
    // Its tasks end after the scope's, and must not start anything there any more.
    engine_.onEvent = nullptr;
    engine_.onSettled = nullptr;
    engine_.observer = nullptr;
}

void Session::open(bool mayBeginAnew) {
    engine_.open();
    if (!engine_.job() && std::filesystem::exists(surroundings_.store().url())) {
        // Either this fails and says why it cannot be read, or it has been mended since.
        if (!mayBeginAnew) savedQueue(surroundings_);
        setDamagedQueueAside();
    }
    nodes_.start();
    requestWatch_ = surroundings_.platform.makeFolderWatch();
    requestWatch_->start(surroundings_.locations().requests(), [this] { scope_.start(answerLater()); });
    scope_.start(answerLater());
}

void Session::setDamagedQueueAside() {
    const std::filesystem::path damaged = surroundings_.store().url();
    const std::filesystem::path aside = surroundings_.locations().damagedQueue();
    std::error_code failure;
    std::filesystem::copy_file(damaged, aside, std::filesystem::copy_options::overwrite_existing, failure);
    if (failure)
        throw Failure(
            Outcome::failed,
            fmt::format("The saved queue cannot be read, and no copy of it can be kept as {}: {}. Make room, "
                        "or move {} away.",
                        aside.string(), failure.message(), damaged.string()));
    listener_.said(fmt::format("The saved queue cannot be read. A copy is kept as {}, and a new one begins.",
                               aside.string()));
}

Task<std::optional<Said>> Session::settleAccounts() {
    const Busy busy(*this);
    co_await adding_.wait();
    const SlotPermit turn(adding_);
    if (!ingest_.owesReport()) co_return std::nullopt;
    IngestDesk::Closing closing = co_await ingest_.close();
    co_return std::move(closing.notReported);
}

Task<void> Session::start() {
    const Busy busy(*this);
    if (engine_.pausedByVark()) {
        co_await recoverToken(atOnce, std::nullopt);
        refusals_ = 0;
    }
    if (isClosing_) co_return;
    isStarted_ = true;
    goIfItMay();
}

void Session::goIfItMay() {
    if (!isStarted_ || isClosing_ || desk_.whyItMustNotGo()) return;
    watchVolumes();
    engine_.start(true);
    desk_.decideAsWished();
}

Task<void> Session::close() {
    isClosing_ = true;
    engine_.pauseForQuit();
    // Before anything that takes time: whoever asked for the end may end the process on the spot. Without a
    // job the file, if there is one, is a queue that could not be read: that stays.
    if (engine_.job()) engine_.flush();
    requestWatch_.reset();
    volumes_.reset();
    const std::vector<TaskHandle<void>> errands = std::exchange(errands_, {});
    for (const TaskHandle<void>& errand : errands)
        errand.cancel();
    for (const TaskHandle<void>& errand : errands)
        co_await errand.finished();
    noteWhatWasSent();
}

void Session::setPace(const Pace& pace) {
    engine_.limiter.setBytesPerSecond(pace.bytesPerSecond);
    if (!pace.hours) {
        engine_.setOfficeHours(OfficeHours());
        return;
    }
    engine_.setOfficeHours([hours = *pace.hours, calendar = surroundings_.calendar()](Date date) {
        return hours.at(date, calendar);
    });
}

// What it is asked for.

Task<QueueAnswer> Session::carryOut(QueueRequest request) {
    using Command = QueueRequest::Command;
    const Busy busy(*this);
    std::optional<SlotPermit> turn;
    if (request.command == Command::add || request.command == Command::clear ||
        request.command == Command::ingest) {
        co_await adding_.wait();
        turn.emplace(adding_);
    }
    if (isClosing_) {
        QueueAnswer answer;
        answer.refuse("The vark that was sending has just been ended. Ask again.");
        co_return answer;
    }
    QueueAnswer answer;
    if (request.command == Command::ingest) {
        answer = co_await bringInFor(std::move(request));
    } else {
        const bool isLook = request.command == Command::show;
        answer = co_await desk_.carryOut(std::move(request));
        if (isLook) answer.card = cardClosed_;
    }
    goIfItMay();
    co_return answer;
}

Task<QueueAnswer> Session::bringInFor(QueueRequest request) {
    if (!takesCardsOfOthers_ || !request.ingest) {
        QueueAnswer answer;
        answer.refuse({"Another vark is sending, and a card needs the queue for itself.", {{Step::watch}}});
        co_return answer;
    }
    IngestDesk::Opening opening = co_await ingest_.open(*std::move(request.ingest));
    if (opening.goesOn) {
        for (const TransferEntry& entry : engine_.job()->entries)
            opening.answer.entries.push_back(entry.id.text());
        desk_.wish(opening.answer.entries, request.wish);
    }
    co_return std::move(opening.answer);
}

Task<QueueAnswer> Session::take(QueueRequest request) {
    const Busy busy(*this);
    co_await adding_.wait();
    const SlotPermit turn(adding_);
    QueueAnswer answer = co_await desk_.change(std::move(request));
    co_await engine_.saved();
    goIfItMay();
    co_return answer;
}

Task<IngestDesk::Opening> Session::bringIn(IngestWish wish) {
    const Busy busy(*this);
    co_await adding_.wait();
    const SlotPermit turn(adding_);
    IngestDesk::Opening opening = co_await ingest_.open(std::move(wish));
    goIfItMay();
    co_return opening;
}

void Session::answerRequests() {
    while (std::optional<RequestFolder::Taken> taken = requests_.takeNext(surroundings_.date()))
        undertake(serve(*std::move(taken)));
}

Task<void> Session::answerLater() {
    if (!isClosing_) answerRequests();
    co_return;
}

Task<void> Session::serve(RequestFolder::Taken taken) {
    QueueAnswer answer;
    if (!taken.request) {
        answer.refuse("The running vark did not understand the request. Are both of the same version?");
        requests_.answer(taken.id, answer);
        co_return;
    }
    // Whoever asked to add something and gets no answer sees this run end, and goes on by itself.
    using Command = QueueRequest::Command;
    const bool isAdding = taken.request->command == Command::add || taken.request->command == Command::ingest;
    if (isAdding) {
        answer = co_await carryOut(*std::move(taken.request));
        if (isClosing_) co_return;
    } else {
        answer = co_await shielded(carryOut(*std::move(taken.request)));
    }
    requests_.answer(taken.id, answer);
}

// What happens.

void Session::changed(std::size_t) {
    isSettledTold_ = false;
    cardClosed_.reset();
    if (isStarted_ && keepingLevel_.done()) keepingLevel_ = scope_.start(keepLevelFresh());
    listener_.changed();
}

void Session::appended(std::size_t, std::size_t) {
    changed(0);
}

void Session::renewed() {
    changed(0);
}

void Session::heard(const TransferEngine::Event& event) {
    if (isClosing_) return;
    if (std::holds_alternative<TransferEngine::JobFinished>(event)) {
        scope_.start(lookLater());
    } else if (std::holds_alternative<TransferEngine::StateChanged>(event)) {
        tellOfTrouble();
        listener_.changed();
    } else if (const auto* refused = std::get_if<TransferEngine::SignedOut>(&event)) {
        if (!recovering_.done()) return;
        if (refused->hadProgress) refusals_ = 0;
        const std::string said = refused->refused.said.value_or("");
        if (refusals_ < waitsAfterRefusal.size())
            listener_.said(fmt::format("The vark refused this machine's token{} It is checked again in {} s.",
                                       said.empty() ? "." : ": " + asSentence(said),
                                       waitsAfterRefusal[refusals_].count()));
        recovering_ = undertake(recoverToken(waitsAfterRefusal, said));
    } else if (std::holds_alternative<TransferEngine::NoToken>(event)) {
        listener_.connectionGone();
    } else if (const auto* again = std::get_if<TransferEngine::TriedAgain>(&event)) {
        listener_.triedAgain(*again);
    }
}

void Session::fileSettled(const TransferItem& item) {
    const std::string path = engine_.job()->serverPath(item);
    if (item.state == ItemState::verified && !item.alreadyThere) {
        sent_.push_back(ActionLines::sent(path, surroundings_.date()));
        if (sent_.size() == 1) scope_.start(noteSoonWhatWasSent());
    }
    if (item.state == ItemState::conflict && desk_.isDecidedAsWished(item)) {
        if (deciding_.done()) deciding_ = scope_.start(decideAsWished());
        return;
    }
    SettledFile file{path,
                     item.localPath,
                     item.size,
                     item.state,
                     item.alreadyThere,
                     item.changedWhileSent,
                     item.error,
                     item.uploadID ? surroundings_.ways.take(*item.uploadID) : WaysTaken::Ways{}};
    listener_.settled(file);
    desk_.noteSettled(item.entryID, std::move(file));
}

Task<void> Session::decideAsWished() {
    desk_.decideAsWished();
    co_return;
}

Task<void> Session::noteSoonWhatWasSent() {
    co_await sleepFor(activityWaits);
    noteWhatWasSent();
}

void Session::noteWhatWasSent() {
    if (!sent_.empty()) SharedActivity::note(sent_, surroundings_.sharedFolder(), surroundings_.date());
    sent_.clear();
}

void Session::tellOfTrouble() {
    const std::optional<TransferEngine::Outage>& outage = engine_.outage();
    const std::optional<Date> since = outage ? std::optional(outage->since) : std::nullopt;
    if (outage && since != outageToldOf_)
        listener_.said(
            fmt::format("The vark cannot be reached since {}: {} It is tried again until it answers.",
                        Format::time(outage->since, surroundings_.calendar()), asSentence(outage->why)));
    outageToldOf_ = since;
    const std::optional<std::string>& failure = engine_.saveFailure();
    if (failure && !toldOfSaving_)
        listener_.said(
            fmt::format("{} It is tried again for as long as this vark runs.", asSentence(*failure)));
    if (!failure && toldOfSaving_) listener_.said("The queue is on the disk again.");
    toldOfSaving_ = failure.has_value();
}

// The token, and what it allows.

Task<void> Session::recoverToken(std::vector<seconds> waits, std::optional<std::string> refusal) {
    TokenVerdict verdict{true, true, ""};
    while (refusals_ < waits.size()) {
        const seconds wait = waits[refusals_++];
        if (wait > seconds(0)) co_await sleepFor(wait);
        verdict = co_await judgeToken(surroundings_, api_);
        if (isClosing_) co_return;
        if (!verdict.isGood) continue;
        if (engine_.resumeIfTheVarkPausedIt())
            listener_.said("The vark accepts the token again. Carrying on.");
        listener_.tokenGood();
        co_return;
    }
    listener_.tokenRefused(whyRefused(verdict, refusal));
}

void Session::tokenMayBeGood() {
    if (!engine_.pausedByVark() || !recovering_.done()) return;
    refusals_ = 0;
    recovering_ = undertake(recoverToken(atOnce, std::nullopt));
}

Task<void> Session::keepLevelFresh() {
    while (true) {
        co_await sleepFor(betweenLooksAtTheLevel);
        if (engine_.activeItemIDs().empty()) co_return;
        if (surroundings_.clock.now() < levelIsDue_) continue;
        levelIsDue_ = surroundings_.clock.now() + levelLasts;
        // A refusal shows itself in what is being sent.
        co_await judgeToken(surroundings_, api_);
    }
}

// The card.

void Session::watchVolumes() {
    if (card() == nullptr) return;
    if (!volumes_)
        volumes_ = surroundings_.platform.volumes().watch([this] { scope_.start(lookForTheCard()); });
}

Task<void> Session::lookForTheCard() {
    if (isClosing_) co_return;
    engine_.lookForTheDrive();
}

Task<void> Session::closeCard() {
    CardClosed closed{.verdict = {}, .wasOpen = ingest_.isOpen(), .notReported = {}};
    IngestDesk::Closing closing = co_await ingest_.close();
    // Meanwhile somebody may have queued again what failed, or cleared the queue.
    if (isClosing_ || card() == nullptr || !engine_.overall().allSettled()) co_return;
    closed.verdict = std::move(closing.verdict);
    closed.notReported = std::move(closing.notReported);
    listener_.cardClosed(closed);
    cardClosed_ = std::move(closed);
}

// Its errands.

TaskHandle<void> Session::undertake(Task<void> errand) {
    std::erase_if(errands_, [](const TaskHandle<void>& one) { return one.done(); });
    errands_.push_back(scope_.start(watched(std::move(errand))));
    return errands_.back();
}

Task<void> Session::watched(Task<void> errand) {
    const Busy busy(*this);
    std::string failure;
    try {
        co_await std::move(errand);
        co_return;
    } catch (const std::exception& error) {
        failure = error.what();
    }
    listener_.brokenOff(
        fmt::format("Something went wrong that should not have: {}", asSentence(std::move(failure))));
}

Task<void> Session::lookLater() {
    lookWhetherSettled();
    co_return;
}

void Session::lookWhetherSettled() {
    if (!isStarted_ || isClosing_ || busy_ > 0 || isSettledTold_) return;
    if (engine_.job()) {
        engine_.recompute();
        if (!engine_.activeItemIDs().empty() || !engine_.overall().allSettled()) return;
        // A card is not done with while a decision waits.
        if (card() != nullptr && engine_.overall().filesConflict == 0 && !cardClosed_) {
            undertake(closeCard());
            return;
        }
    }
    isSettledTold_ = true;
    listener_.allSettled();
}

}  // namespace vark::app
