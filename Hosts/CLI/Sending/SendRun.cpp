#include "Hosts/CLI/Sending/SendRun.h"

#include <fmt/ranges.h>

#include <algorithm>

#include "Hosts/CLI/NextWords.h"
#include "Hosts/CLI/Sending/Following.h"
#include "VarkCore/Foundation/Sentence.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

constexpr Duration beatLength = std::chrono::milliseconds(250);

}  // namespace

std::string asGiven(Duration timeout) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout).count();
    if (seconds % 3600 == 0) return fmt::format("{} h", seconds / 3600);
    return seconds % 60 == 0 ? fmt::format("{} min", seconds / 60) : fmt::format("{} s", seconds);
}

SendRun::SendRun(Surroundings& surroundings, const SharedConnection& connection, QueueLock lock,
                 Settings settings, SendDisplay& display)
    : surroundings_(surroundings),
      display_(display),
      settings_(std::move(settings)),
      session_(surroundings, connection, std::move(lock), settings_.pace, *this),
      scope_(surroundings.executor, surroundings.clock) {
    session_.setUsualRule(settings_.onConflict);
    opening_ = scope_.start(open());
    if (settings_.timeout) scope_.start(leaveAfter(*settings_.timeout));
}

SendRun::~SendRun() = default;

// Taking in.

Task<void> SendRun::open() {
    std::optional<Said> failure;
    Outcome outcome = Outcome::failed;
    try {
        session_.open(addsSomething());
        co_await takeIn();
    } catch (const Failure& known) {
        outcome = known.outcome();
        failure = known.said();
    } catch (const std::exception& error) {
        failure.emplace(
            fmt::format("Something went wrong that should not have: {}", asSentence(error.what())));
    }
    if (failure) breakOff(exitCodeOf(outcome), inWords(*failure));
    if (isLeaving()) co_return;
    if (engine().isPaused() && !engine().pausedByVark())
        display_.say(
            "The queue is paused. Carry on with the key p, or from another terminal with: vark resume");
    life_ = Life::sending;
    changed();
    co_await session_.start();
}

Task<void> SendRun::takeIn() {
    if (settings_.ingest) {
        co_await takeInCard();
        co_return;
    }
    if (settings_.add.named.empty()) {
        carryOn();
        co_return;
    }
    const std::optional<Said> notReported = co_await session_.settleAccounts();
    if (notReported) stop(ExitCode::somethingFailed, inWords(*notReported));
    if (isLeaving()) co_return;
    QueueAnswer answer;
    try {
        answer = co_await session_.take(settings_.add);
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
}

Task<void> SendRun::takeInCard() {
    const IngestDesk::Opening opening = co_await session_.bringIn(*settings_.ingest);
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

void SendRun::carryOn() {
    if (!engine().job()) {
        breakOff(ExitCode::allLanded, "There is no saved queue. Send something with: vark send PATH...");
    } else if (const std::optional<Said> reason = session_.desk().whyItMustNotGo()) {
        breakOff(ExitCode::usage, inWords(*reason));
    } else {
        noteWhatIsMine({});
    }
}

void SendRun::sayWhatWasNotAdded() {
    std::vector<std::string> paths;
    for (const QueueRequest::Named& named : settings_.add.named) {
        const bool isInQueue =
            engine().job() && std::ranges::any_of(engine().job()->entries, [&](const TransferEntry& entry) {
                return entry.localPath == named.path;
            });
        if (!isInQueue) paths.push_back(named.path);
    }
    if (paths.empty()) return;
    display_.say(fmt::format("Not added, since it was still being looked through: {}. Send it again.",
                             fmt::join(paths, ", ")));
}

void SendRun::noteWhatIsMine(const std::vector<std::string>& added) {
    if (!engine().job()) return;
    const bool isWholeQueue = settings_.add.named.empty();
    for (const EntryView& entry : QueueView::of(engine(), surroundings_.date()).entries) {
        if (isWholeQueue || !entry.isSettled() || std::ranges::find(added, entry.id) != added.end())
            mine_.push_back(*UUID::parse(entry.id));
    }
}

void SendRun::leaveRefused(const QueueAnswer& answer) {
    const ExitCode code = exitCodeOf(answer.outcome);
    if (answer.problems.empty()) {
        breakOff(code, "Nothing was sent.");
        return;
    }
    for (std::size_t place = 0; place + 1 < answer.problems.size(); ++place)
        display_.say(inWords(answer.problems[place]));
    breakOff(code, inWords(answer.problems.back()));
}

// While it sends.

void SendRun::settled(const SettledFile& file) {
    settledAnything_ = true;
    display_.fileSettled(file);
}

void SendRun::changed() {
    isStale_ = true;
    if (life_ == Life::sending && beat_.done()) beat_ = scope_.start(beating());
}

Task<void> SendRun::beating() {
    do {
        co_await sleepFor(beatLength);
        if (isLeaving()) co_return;
        isStale_ = false;
        display_.show(glance());
        lookWhetherSomebodyIsMissed();
    } while (isStale_ || !engine().activeItemIDs().empty());
}

void SendRun::lookWhetherSomebodyIsMissed() {
    const bool isPaused = engine().isPaused() && !engine().pausedByVark();
    if (!isPaused) waiting_.cancel();
    if (isPaused && !settings_.somebodyIsThere && waiting_.done()) waiting_ = scope_.start(waitForSomebody());
}

Task<void> SendRun::waitForSomebody() {
    co_await sleepFor(longestPauseUnseen);
    stop(ExitCode::notConnected,
         "The queue is paused, and nobody is here to resume it. Resume it with: vark resume.");
}

void SendRun::allSettled() {
    if (life_ != Life::sending) return;
    if (!engine().job()) {
        const QueueView mine = this->mine();
        breakOff(outcomeOf(mine, wasLeftBehind_),
                 mine.filesTakenAway() > 0
                     ? fmt::format("The queue was cleared, and {} of it had not landed.",
                                   Format::count(mine.filesTakenAway(), "file"))
                     : "The queue was cleared.");
        return;
    }
    finish(isCardUnsafe_ ? ExitCode::somethingFailed : outcomeOf(mine(), wasLeftBehind_));
}

void SendRun::cardClosed(const CardClosed& card) {
    display_.cardClosed(card.verdict);
    if (card.notReported) display_.say(inWords(*card.notReported));
    isCardUnsafe_ = !card.endsWell();
}

void SendRun::connectionGone() {
    stop(ExitCode::notConnected,
         "This machine is no longer connected to the vark. Connect again with: vark connect URL.");
}

Task<void> SendRun::leaveAfter(Duration timeout) {
    co_await sleepFor(timeout);
    stop(ExitCode::somethingFailed,
         fmt::format("Not all has landed within {}, so this run ends.", asGiven(timeout)));
}

void SendRun::press(char key) {
    using Command = QueueRequest::Command;
    if (isLeaving()) return;
    if (key == 'q') {
        interrupt();
    } else if (key == 'r') {
        scope_.start(request(Command::retry));
    } else if (key == 'p') {
        scope_.start(request(engine().isPaused() ? Command::resume : Command::pause));
    } else {
        display_.show(glance());
    }
}

Task<void> SendRun::request(QueueRequest::Command command) {
    QueueRequest request;
    request.command = command;
    const QueueAnswer answer = co_await session_.carryOut(std::move(request));
    for (const Said& problem : answer.problems)
        display_.say(inWords(problem));
    if (!isLeaving()) display_.show(glance());
}

void SendRun::interrupt() {
    stop(ExitCode::interrupted, "Stopped.");
}

void SendRun::post(std::optional<char> key) {
    scope_.start(take(key));
}

Task<void> SendRun::take(std::optional<char> key) {
    if (key) {
        press(*key);
    } else {
        interrupt();
    }
    co_return;
}

// Its end.

void SendRun::leave(Ending ending) {
    if (isLeaving()) return;
    life_ = Life::leaving;
    ending_ = std::move(ending);
    opening_.cancel();
    scope_.start(speakLastWords());
}

Task<void> SendRun::speakLastWords() {
    co_await session_.close();
    co_await opening_.finished();
    // What the engine has found out about the queue's file by now is the last word on it.
    const bool isSaved = !engine().saveFailure();
    if (leftOut_.hasAny()) display_.leftOut(leftOut_);
    const bool mayMatter = ending_.code != ExitCode::allLanded && ending_.code != ExitCode::usage;
    if (!isSaved && mayMatter) ending_.code = ExitCode::somethingFailed;
    tellHowItEnded(isSaved);
    life_ = Life::ended;
}

void SendRun::tellHowItEnded(bool isSaved) {
    if (ending_.sentence) {
        if (ending_.leavesWork) surroundings_.log().write("The run ended: " + *ending_.sentence);
        display_.breakOff(ending_.leavesWork ? *ending_.sentence + howToCarryOn(isSaved) : *ending_.sentence);
        return;
    }
    if (!isSaved)
        display_.say(fmt::format("{} The next run looks again at what it does not know to have landed.",
                                 asSentence(*engine().saveFailure())));
    QueueView view = QueueView::of(engine(), surroundings_.date());
    for (const EntryView& entry : mine().entries) {
        if (entry.isGone) view.entries.push_back(entry);
    }
    if (settledAnything_ || wasLeftBehind_) {
        display_.finish(view, ending_.code);
    } else {
        display_.finishIdle(view, ending_.code);
    }
}

std::string SendRun::howToCarryOn(bool isSaved) const {
    if (!isSaved)
        return fmt::format(" {} Make room, and send again what has not landed.",
                           asSentence(*engine().saveFailure()));
    if (!engine().job() || engine().overall().allSettled()) return "";
    return " The queue is saved. Carry on with: vark send";
}

}  // namespace vark::cli
