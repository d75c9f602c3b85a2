#include "Hosts/CLI/Sending/SendSession.h"

#include <fmt/ranges.h>

#include <algorithm>

#include "Hosts/CLI/NextWords.h"
#include "Hosts/CLI/Sending/Following.h"
#include "VarkCore/Actions/ActionLines.h"
#include "VarkCore/Activity/SharedActivity.h"
#include "VarkCore/Connection/SharedLevel.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

using std::chrono::seconds;

constexpr Duration beatLength = std::chrono::milliseconds(250);
constexpr int beatsBetweenRequests = 2;
constexpr int usualChunksAtOnce = 4;
/// A night without the vark is no reason to give a file up. Who cannot wait says so with a time-out.
constexpr Duration patience = std::chrono::hours(24);
/// How long after a refusal the token is tried again, each time, until something has landed.
const std::vector<seconds> waitsAfterRefusal = {seconds(2), seconds(8), seconds(30)};
const std::vector<seconds> atOnce = {seconds(0)};
/// What a device may do is believed for ten minutes after it was learned.
constexpr Duration levelLasts = std::chrono::minutes(9);

struct TokenVerdict {
    bool isGood = false;
    /// Whether the vark said so, or could not be asked.
    bool isSaid = false;
    std::string sentence;
};

Task<TokenVerdict> judgeToken(CommandSurroundings& surroundings, std::shared_ptr<VarkAPI> api) {
    try {
        const WhoAmI who = co_await api->whoami();
        surroundings.learn(who);
    } catch (const VarkAPIError& error) {
        co_return TokenVerdict{false, error.isSignOut(), error.errorDescription()};
    }
    co_return TokenVerdict{true, true, ""};
}

std::string asSentence(std::string text) {
    if (!text.ends_with('.') && !text.ends_with('!') && !text.ends_with('?')) text += '.';
    return text;
}

/// When what the device may do is to be asked for first.
Instant firstLevelDue(CommandSurroundings& surroundings) {
    const std::optional<SharedLevel> level = SharedLevelStore::read(surroundings.sharedFolder());
    const Instant now = surroundings.clock.now();
    if (!level || !level->isFresh(surroundings.date())) return now;
    const Duration age = vark::seconds(surroundings.date() - level->at);
    return now + std::max(Duration(0), levelLasts - age);
}

}  // namespace

SendSession::SendSession(CommandSurroundings& surroundings, const SharedConnection& connection,
                         Settings settings, SendDisplay& display)
    : surroundings_(surroundings),
      display_(display),
      settings_(std::move(settings)),
      api_(surroundings.api(connection, settings_.chunksAtOnce.value_or(usualChunksAtOnce))),
      requests_(surroundings.locations().requests()),
      engine_(api_, surroundings.store(), surroundings.log(),
              settings_.chunksAtOnce.value_or(usualChunksAtOnce), surroundings.engineHost()),
      desk_(surroundings, engine_, api_, connection.rootPath, connection.clientName),
      ingest_(surroundings, engine_, desk_, api_),
      services_(surroundings.platform.makeServiceBrowser(surroundings.executor)),
      nodes_(surroundings.lanToBrowse(), {surroundings.executor, surroundings.clock, surroundings.date,
                                          *services_, surroundings.pool(), surroundings.sharedFolder()}),
      levelIsDue_(firstLevelDue(surroundings)),
      scope_(surroundings.executor, surroundings.clock) {
    engine_.limiter.setBytesPerSecond(settings_.bytesPerSecond);
    engine_.patience = patience;
    engine_.chunksFollowTheRate = !settings_.chunksAtOnce;
    engine_.onEvent = [this](const TransferEngine::Event& event) { heard(event); };
    engine_.onSettled = [this](const TransferItem& item) { fileSettled(item); };
    nodes_.log = [this](const std::string& sentence) { surroundings_.log().write(sentence); };
    undertake(open());
    scope_.start(watched(beating()));
    if (settings_.timeout) scope_.start(watched(leaveAfter(*settings_.timeout)));
}

SendSession::~SendSession() {
    // Its tasks end after the scope's, and must not start anything there any more.
    engine_.onEvent = nullptr;
    engine_.onSettled = nullptr;
}

TaskHandle<void> SendSession::undertake(Task<void> errand) {
    if (isLeaving()) return {};
    errands_.push_back(scope_.start(watched(std::move(errand))));
    return errands_.back();
}

bool SendSession::isBusy() {
    std::erase_if(errands_, [](const TaskHandle<void>& errand) { return errand.done(); });
    return !errands_.empty();
}

void SendSession::keepWorkingHours() {
    if (!settings_.workingHours) return;
    engine_.setOfficeHours([hours = *settings_.workingHours, calendar = surroundings_.calendar()](Date date) {
        return hours.at(date, calendar);
    });
}

Task<void> SendSession::watched(Task<void> task) {
    std::string failure;
    try {
        co_await std::move(task);
        co_return;
    } catch (const std::exception& error) {
        failure = error.what();
    }
    stop(ExitCode::somethingFailed,
         fmt::format("Something went wrong that should not have: {}", asSentence(failure)));
}

Task<void> SendSession::open() {
    co_await adding_.wait();
    const SlotPermit turn(adding_);
    nodes_.start();
    // Nothing starts before what is to be added has been taken in, or refused.
    engine_.open();
    keepWorkingHours();
    if (!engine_.job() && std::filesystem::exists(surroundings_.store().url())) setDamagedQueueAside();
    if (isLeaving()) co_return;

    if (addsSomething()) {
        // A card has its own accounts settled where it is opened.
        if (!settings_.ingest) co_await settleAccounts();
        if (!isLeaving()) co_await takeIn();
    } else if (!engine_.job()) {
        breakOff(ExitCode::allLanded, "There is no saved queue. Send something with: vark send PATH...");
    } else if (const std::optional<Said> reason = desk_.whyItMustNotGo()) {
        breakOff(ExitCode::usage, inWords(*reason));
    } else {
        noteWhatIsMine({});
    }
    if (isLeaving()) co_return;

    if (engine_.pausedByVark()) {
        co_await recoverToken(atOnce, std::nullopt);
        refusals_ = 0;
    } else if (engine_.isPaused()) {
        display_.say(
            "The queue is paused. Carry on with the key p, or from another terminal with: vark resume");
    }
    if (isLeaving()) co_return;
    life_ = Life::sending;
    watchVolumes();
    engine_.start(true);
    scope_.start(endIfSettled());
}

Task<void> SendSession::settleAccounts() {
    if (!ingest_.owesReport()) co_return;
    const IngestDesk::Closing closing = co_await ingest_.close();
    if (closing.notReported) stop(ExitCode::somethingFailed, inWords(*closing.notReported));
}

Task<void> SendSession::takeIn() {
    if (settings_.ingest) {
        co_await takeInCard();
        co_return;
    }
    QueueAnswer answer;
    try {
        answer = co_await desk_.change(settings_.add);
    } catch (const CancellationError&) {
        sayWhatWasNotAdded();
        throw;
    }
    if (answer.outcome == Outcome::misuse) {
        leaveRefused(answer);
        co_return;
    }
    for (const Said& problem : answer.problems)
        display_.say(inWords(problem));
    leftOut_ = answer.leftOut;
    wasLeftBehind_ = wasLeftBehind_ || answer.outcome != Outcome::done;
    noteWhatIsMine(answer.entries);
    co_await engine_.saved();
}

void SendSession::sayWhatWasNotAdded() {
    std::vector<std::string> paths;
    for (const QueueRequest::Named& named : settings_.add.named) {
        const bool isInQueue =
            engine_.job() && std::ranges::any_of(engine_.job()->entries, [&](const TransferEntry& entry) {
                return entry.localPath == named.path;
            });
        if (!isInQueue) paths.push_back(named.path);
    }
    if (paths.empty()) return;
    display_.say(fmt::format("Not added, since it was still being looked through: {}. Send it again.",
                             fmt::join(paths, ", ")));
}

void SendSession::noteWhatIsMine(const std::vector<std::string>& added) {
    if (!engine_.job()) return;
    const bool isWholeQueue = settings_.add.named.empty();
    for (const EntryView& entry : QueueView::of(engine_, surroundings_.date()).entries) {
        if (isWholeQueue || !entry.isSettled() || std::ranges::find(added, entry.id) != added.end())
            mine_.push_back(*UUID::parse(entry.id));
    }
}

Task<void> SendSession::takeInCard() {
    const IngestDesk::Opening opening = co_await ingest_.open(*settings_.ingest);
    for (const Said& result : opening.answer.results)
        display_.say(inWords(result));
    if (!opening.goesOn) {
        leaveRefused(opening.answer);
        co_return;
    }
    for (const Said& problem : opening.answer.problems)
        display_.say(inWords(problem));
    noteWhatIsMine({});
}

void SendSession::leaveRefused(const QueueAnswer& answer) {
    if (answer.problems.empty()) {
        breakOff(exitCodeOf(answer.outcome), "Nothing was sent.");
        return;
    }
    for (std::size_t place = 0; place + 1 < answer.problems.size(); ++place)
        display_.say(inWords(answer.problems[place]));
    breakOff(exitCodeOf(answer.outcome), inWords(answer.problems.back()));
}

void SendSession::watchVolumes() {
    if (ingest_.ingest() == nullptr) return;
    volumes_ = surroundings_.platform.volumes().watch([this] { scope_.start(lookForTheCard()); });
}

Task<void> SendSession::lookForTheCard() {
    if (isLeaving()) co_return;
    engine_.lookForTheDrive();
}

void SendSession::setDamagedQueueAside() {
    const std::filesystem::path damaged = surroundings_.store().url();
    if (!addsSomething()) {
        breakOff(
            ExitCode::somethingFailed,
            fmt::format("The saved queue cannot be read, and stays as it is: {}. Begin a new one with: vark "
                        "send PATH...",
                        damaged.string()));
        return;
    }
    const std::filesystem::path aside = surroundings_.locations().damagedQueue();
    std::error_code failure;
    std::filesystem::copy_file(damaged, aside, std::filesystem::copy_options::overwrite_existing, failure);
    if (failure) {
        breakOff(
            ExitCode::somethingFailed,
            fmt::format("The saved queue cannot be read, and no copy of it can be kept as {}: {}. Make room, "
                        "or move {} away.",
                        aside.string(), failure.message(), damaged.string()));
        return;
    }
    display_.say(fmt::format("The saved queue cannot be read. A copy is kept as {}, and a new one begins.",
                             aside.string()));
}

Task<void> SendSession::beating() {
    for (int beat = 1;; ++beat) {
        co_await sleepFor(beatLength);
        if (isLeaving()) co_return;
        if (beat % beatsBetweenRequests == 0) answerRequests();
        tellOfWhatWasSent();
        tellOfTrouble();
        keepLevelFresh();
        display_.show(glance());
        leaveWhenPausedUnseen();
        endWhenSettled();
    }
}

void SendSession::answerRequests() {
    while (std::optional<RequestFolder::Taken> taken = requests_.takeNext(surroundings_.date()))
        undertake(serve(*std::move(taken)));
}

Task<void> SendSession::serve(RequestFolder::Taken taken) {
    using Command = QueueRequest::Command;
    QueueAnswer answer;
    if (!taken.request) {
        answer.refuse("The running vark did not understand the request. Are both of the same version?");
        requests_.answer(taken.id, answer);
        co_return;
    }
    const bool isAdding = taken.request->command == Command::add;
    std::optional<SlotPermit> turn;
    if (isAdding || taken.request->command == Command::clear) {
        co_await adding_.wait();
        turn.emplace(adding_);
    }
    // Whoever asked to add something and gets no answer sees this run end, and goes on by itself.
    if (isLeaving() && isAdding) co_return;
    if (isLeaving()) {
        answer.refuse("The vark that was sending has just been ended. Ask again.");
    } else if (isAdding) {
        answer = co_await desk_.carryOut(*std::move(taken.request));
    } else {
        answer = co_await shielded(desk_.carryOut(*std::move(taken.request)));
    }
    requests_.answer(taken.id, answer);
}

void SendSession::heard(const TransferEngine::Event& event) {
    if (isLeaving()) return;
    if (std::holds_alternative<TransferEngine::JobFinished>(event)) {
        scope_.start(endIfSettled());
    } else if (const auto* refused = std::get_if<TransferEngine::SignedOut>(&event)) {
        if (!recovering_.done()) return;
        if (refused->hadProgress) refusals_ = 0;
        const std::string said = refused->refused.said.value_or("");
        if (refusals_ < waitsAfterRefusal.size())
            display_.say(fmt::format("The vark refused this machine's token{} It is checked again in {} s.",
                                     said.empty() ? "." : ": " + asSentence(said),
                                     waitsAfterRefusal[refusals_].count()));
        recovering_ = undertake(recoverToken(waitsAfterRefusal, said));
    } else if (std::holds_alternative<TransferEngine::NoToken>(event)) {
        stop(ExitCode::notConnected,
             "This machine is no longer connected to the vark. Connect again with: vark connect URL.");
    }
}

Task<void> SendSession::recoverToken(std::vector<seconds> waits, std::optional<std::string> refusal) {
    TokenVerdict verdict{true, true, ""};
    while (refusals_ < waits.size()) {
        const seconds wait = waits[refusals_++];
        if (wait > seconds(0)) co_await sleepFor(wait);
        verdict = co_await judgeToken(surroundings_, api_);
        if (isLeaving()) co_return;
        if (verdict.isGood) {
            if (engine_.resumeIfTheVarkPausedIt())
                display_.say("The vark accepts the token again. Carrying on.");
            co_return;
        }
    }
    if (verdict.isGood) {
        stop(ExitCode::notConnected,
             fmt::format("The vark knows this machine, and still refuses what is sent{} Ask whoever looks "
                         "after the vark.",
                         refusal && !refusal->empty() ? ": " + asSentence(*refusal) : "."));
    } else if (verdict.isSaid) {
        stop(ExitCode::notConnected,
             fmt::format("{} Connect again with: vark connect URL.", asSentence(verdict.sentence)));
    } else {
        stop(ExitCode::notConnected,
             fmt::format(
                 "The vark refused this machine's token, and whether it still does cannot be asked: {}",
                 asSentence(verdict.sentence)));
    }
}

void SendSession::keepLevelFresh() {
    if (engine_.activeItemIDs().empty() || surroundings_.clock.now() < levelIsDue_) return;
    levelIsDue_ = surroundings_.clock.now() + levelLasts;
    scope_.start(learnLevel());
}

Task<void> SendSession::learnLevel() {
    // A refusal shows itself in what is being sent.
    co_await judgeToken(surroundings_, api_);
}

void SendSession::tellOfTrouble() {
    const std::optional<TransferEngine::Outage>& outage = engine_.outage();
    const std::optional<Date> since = outage ? std::optional(outage->since) : std::nullopt;
    if (outage && since != outageToldOf_)
        display_.say(
            fmt::format("The vark cannot be reached since {}: {} It is tried again until it answers.",
                        Format::time(outage->since, surroundings_.calendar()), asSentence(outage->why)));
    outageToldOf_ = since;
    if (engine_.saveFailure() && !toldOfSaving_)
        display_.say(fmt::format("{} It is tried again for as long as this vark runs.",
                                 asSentence(*engine_.saveFailure())));
    if (!engine_.saveFailure() && toldOfSaving_) display_.say("The queue is on the disk again.");
    toldOfSaving_ = engine_.saveFailure().has_value();
}

void SendSession::leaveWhenPausedUnseen() {
    const bool isPaused = engine_.isPaused() && !engine_.pausedByVark();
    if (!isPaused || settings_.somebodyIsThere) {
        pausedSince_.reset();
        return;
    }
    const Instant now = surroundings_.clock.now();
    if (!pausedSince_) pausedSince_ = now;
    if (now - *pausedSince_ < longestPauseUnseen) return;
    stop(ExitCode::notConnected,
         "The queue is paused, and nobody is here to resume it. Resume it with: vark resume.");
}

void SendSession::fileSettled(const TransferItem& item) {
    // Decided as soon as the engine has come out of this.
    if (item.state == ItemState::conflict && settings_.replaceConflicts) return;
    settledAnything_ = true;
    const std::string path = engine_.job()->serverPath(item);
    if (item.state == ItemState::verified && !item.alreadyThere)
        sent_.push_back(ActionLines::sent(path, surroundings_.date()));
    display_.fileSettled({path, item.localPath, item.size, item.state, item.alreadyThere,
                          item.changedWhileSent, item.error,
                          item.uploadID ? surroundings_.ways.take(*item.uploadID) : WaysTaken::Ways{}});
}

void SendSession::tellOfWhatWasSent() {
    if (!sent_.empty()) SharedActivity::note(sent_, surroundings_.sharedFolder(), surroundings_.date());
    sent_.clear();
}

Task<void> SendSession::endIfSettled() {
    endWhenSettled();
    co_return;
}

void SendSession::endWhenSettled() {
    if (life_ != Life::sending || isBusy()) return;
    if (!engine_.job()) {
        const QueueView mine = this->mine();
        breakOff(outcomeOf(mine, wasLeftBehind_),
                 mine.filesTakenAway() > 0
                     ? fmt::format("The queue was cleared, and {} of it had not landed.",
                                   Format::count(mine.filesTakenAway(), "file"))
                     : "The queue was cleared.");
        return;
    }
    engine_.recompute();
    if (settings_.replaceConflicts && engine_.overall().filesConflict > 0)
        engine_.resolveAllConflicts(std::nullopt, *settings_.replaceConflicts);
    if (!engine_.activeItemIDs().empty() || !engine_.overall().allSettled()) return;
    // A card is not done with while a decision waits.
    if (ingest_.ingest() == nullptr || engine_.overall().filesConflict > 0) {
        finish(outcomeOf(mine(), wasLeftBehind_));
        return;
    }
    undertake(closeIngest());
}

Task<void> SendSession::closeIngest() {
    const bool wasOpen = ingest_.isOpen();
    const IngestDesk::Closing closing = co_await ingest_.close();
    // Meanwhile somebody may have queued again what failed, or cleared the queue: the next beat sees to that.
    if (isLeaving() || ingest_.ingest() == nullptr || !engine_.overall().allSettled()) co_return;
    display_.cardClosed(closing.verdict);
    if (closing.notReported) display_.say(inWords(*closing.notReported));
    // People clear cards on this code. Of a card that was reported before, and may be cleared by now, nothing
    // is left to say than that all of the queue has landed.
    const bool isWhole = closing.verdict.isSafe() || (!wasOpen && closing.verdict.missing.empty());
    finish(isWhole && !closing.notReported ? outcomeOf(mine(), wasLeftBehind_) : ExitCode::somethingFailed);
}

Task<void> SendSession::leaveAfter(Duration timeout) {
    co_await sleepFor(timeout);
    stop(ExitCode::somethingFailed, fmt::format("Not all has landed within {}, so this run ends.",
                                                Format::timeLeft(inSeconds(timeout))));
}

void SendSession::leave(Ending ending) {
    if (isLeaving()) return;
    life_ = Life::leaving;
    ending_ = std::move(ending);
    engine_.pauseForQuit();
    // Before anything that takes time: a second Ctrl-C ends the process on the spot. Without a job the file,
    // if there is one, is a queue that could not be read: that stays.
    ending_.isSaved = engine_.job() ? engine_.flush() : !engine_.saveFailure();
    scope_.start(speakLastWords());
}

Task<void> SendSession::speakLastWords() {
    const std::vector<TaskHandle<void>> errands = errands_;
    for (const TaskHandle<void>& errand : errands)
        errand.cancel();
    for (const TaskHandle<void>& errand : errands)
        co_await errand.finished();
    tellOfWhatWasSent();
    if (leftOut_.hasAny()) display_.leftOut(leftOut_);
    const bool mayMatter = ending_.code != ExitCode::allLanded && ending_.code != ExitCode::usage;
    if (!ending_.isSaved && mayMatter) ending_.code = ExitCode::somethingFailed;
    if (ending_.sentence) {
        if (ending_.leavesWork) surroundings_.log().write("The run ended: " + *ending_.sentence);
        display_.breakOff(ending_.leavesWork ? *ending_.sentence + howToCarryOn() : *ending_.sentence);
        life_ = Life::ended;
        co_return;
    }
    if (!ending_.isSaved)
        display_.say(fmt::format("{} The next run looks again at what it does not know to have landed.",
                                 asSentence(engine_.saveFailure().value_or("The queue could not be saved"))));
    QueueView view = QueueView::of(engine_, surroundings_.date());
    for (const EntryView& entry : mine().entries) {
        if (entry.isGone) view.entries.push_back(entry);
    }
    if (settledAnything_ || wasLeftBehind_) {
        display_.finish(view, ending_.code);
    } else {
        display_.finishIdle(view, ending_.code);
    }
    life_ = Life::ended;
}

std::string SendSession::howToCarryOn() const {
    if (!ending_.isSaved)
        return fmt::format(" {} Make room, and send again what has not landed.",
                           asSentence(engine_.saveFailure().value_or("The queue could not be saved")));
    if (!engine_.job() || engine_.overall().allSettled()) return "";
    return " The queue is saved. Carry on with: vark send";
}

void SendSession::press(char key) {
    if (isLeaving()) return;
    if (key == 'q') {
        interrupt();
    } else if (key == 'r') {
        engine_.retryFailed();
    } else if (key == 'p' && engine_.isPaused()) {
        engine_.resume();
    } else if (key == 'p') {
        engine_.pause();
    }
    if (!isLeaving()) display_.show(glance());
}

void SendSession::interrupt() {
    stop(ExitCode::interrupted, "Stopped.");
}

void SendSession::post(std::optional<char> key) {
    scope_.start(take(key));
}

Task<void> SendSession::take(std::optional<char> key) {
    if (key) {
        press(*key);
    } else {
        interrupt();
    }
    co_return;
}

}  // namespace vark::cli
