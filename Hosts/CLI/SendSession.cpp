#include "Hosts/CLI/SendSession.h"

#include "VarkCore/Actions/ActionLines.h"
#include "VarkCore/Activity/SharedActivity.h"

namespace vark::cli {

namespace {

using std::chrono::seconds;

constexpr Duration beatLength = std::chrono::milliseconds(250);
constexpr int beatsBetweenRequests = 2;
constexpr std::size_t filesAtOnce = 4;
/// How long after a refusal the token is tried again, each time.
const std::vector<seconds> waitsAfterRefusal = {seconds(2), seconds(8), seconds(30)};
const std::vector<seconds> atOnce = {seconds(0)};

constexpr std::string_view howToCarryOn = "The queue is saved. Carry on with: vark send";

struct TokenVerdict {
    bool isGood;
    std::string sentence;
};

Task<TokenVerdict> judgeToken(Surroundings& surroundings, std::shared_ptr<VarkAPI> api) {
    try {
        const WhoAmI who = co_await api->whoami();
        surroundings.learn(who);
    } catch (const VarkAPIError& error) {
        co_return TokenVerdict{false, error.errorDescription()};
    }
    co_return TokenVerdict{true, ""};
}

}  // namespace

SendSession::SendSession(Surroundings& surroundings, const SharedConnection& connection, Settings settings,
                         SendDisplay& display)
    : surroundings_(surroundings),
      display_(display),
      settings_(std::move(settings)),
      api_(surroundings.api(connection, settings_.chunksAtOnce)),
      requests_(surroundings.locations().requests()),
      engine_(api_, surroundings.store(), surroundings.log(), settings_.chunksAtOnce,
              surroundings.engineHost()),
      desk_(engine_, api_, connection.rootPath, connection.clientName),
      ingest_(surroundings, engine_, desk_, api_),
      services_(surroundings.platform.makeServiceBrowser(surroundings.executor)),
      nodes_(surroundings.lan(), {surroundings.executor, surroundings.clock, surroundings.date, *services_,
                                  surroundings.pool(), surroundings.sharedFolder()}),
      scope_(surroundings.executor, surroundings.clock) {
    engine_.limiter.setBytesPerSecond(settings_.bytesPerSecond);
    // Nothing starts before what is to be added has been taken in, or refused.
    engine_.maxConcurrentFiles = 0;
    engine_.onEvent = [this](const TransferEngine::Event& event) { heard(event); };
    engine_.onSettled = [this](const TransferItem& item) { fileSettled(item); };
    nodes_.log = [this](const std::string& sentence) { surroundings_.log().write(sentence); };
    scope_.start(watched(open()));
    scope_.start(watched(beating()));
}

SendSession::~SendSession() {
    // Its tasks end after the scope's, and must not start anything there any more.
    engine_.onEvent = nullptr;
    engine_.onSettled = nullptr;
}

void SendSession::fileSettled(const TransferItem& item) {
    const std::string path = engine_.job()->serverPath(item);
    if (item.state == ItemState::verified && !item.alreadyThere)
        sent_.push_back(ActionLines::sent(path, surroundings_.date()));
    display_.fileSettled({path, item.localPath, item.size, item.state, item.alreadyThere, item.error,
                          item.uploadID ? surroundings_.ways.take(*item.uploadID) : WaysTaken::Ways{}});
}

void SendSession::tellOfWhatWasSent() {
    if (!sent_.empty()) SharedActivity::note(sent_, surroundings_.sharedFolder(), surroundings_.date());
    sent_.clear();
}

QueueView SendSession::glance() const {
    return QueueView::glance(engine_);
}

Task<void> SendSession::watched(Task<void> task) {
    std::string failure;
    try {
        co_await std::move(task);
        co_return;
    } catch (const std::exception& error) {
        failure = error.what();
    }
    if (!ended_)
        breakOff(ExitCode::somethingFailed,
                 fmt::format("Something went wrong that should not have: {}. {}", failure, howToCarryOn));
}

Task<void> SendSession::open() {
    nodes_.start();
    engine_.start(false);
    if (settings_.officeHours) engine_.setOfficeHours(*settings_.officeHours);
    if (!engine_.job() && std::filesystem::exists(surroundings_.store().url())) setDamagedQueueAside();
    if (ended_) co_return;

    if (addsSomething()) {
        // A card has its own accounts settled where it is opened.
        if (!settings_.ingest) co_await settleAccounts();
        if (!ended_) co_await takeIn();
    } else if (!engine_.job()) {
        breakOff(ExitCode::allLanded, "There is no saved queue. Send something with: vark send PATH...");
        co_return;
    } else if (std::optional<std::string> reason = desk_.whyItMustNotGo()) {
        breakOff(ExitCode::usage, *reason);
        co_return;
    }
    if (ended_) co_return;

    if (engine_.pausedByVark()) {
        co_await recoverToken(atOnce);
    } else if (engine_.isPaused()) {
        display_.say(
            "The queue is paused. Carry on with the key p, or from another terminal with: vark resume");
    }
    if (ended_) co_return;
    opened_ = true;
    watchVolumes();
    engine_.maxConcurrentFiles = filesAtOnce;
    engine_.start(true);
    endWhenSettled();
}

Task<void> SendSession::settleAccounts() {
    if (!ingest_.owesReport()) co_return;
    const IngestDesk::Closing closing = co_await ingest_.close();
    if (!ended_ && closing.notReported) breakOff(ExitCode::somethingFailed, *closing.notReported);
}

Task<void> SendSession::takeIn() {
    if (settings_.ingest) {
        co_await takeInCard();
        co_return;
    }
    QueueAnswer answer = co_await desk_.carryOut(settings_.add);
    for (const std::string& sentence : answer.problems)
        display_.say(sentence);
    somePathsFailed_ = answer.code != ExitCode::allLanded;
    if (answer.code == ExitCode::usage) stop(answer.code);
}

Task<void> SendSession::takeInCard() {
    const IngestDesk::Opening opening = co_await ingest_.open(*settings_.ingest);
    for (const std::string& sentence : opening.answer.results)
        display_.say(sentence);
    for (const std::string& sentence : opening.answer.problems)
        display_.say(sentence);
    if (!ended_ && !opening.goesOn) stop(opening.answer.code);
}

void SendSession::watchVolumes() {
    if (ingest_.ingest() == nullptr) return;
    volumes_ = surroundings_.platform.volumes().watch([this] { scope_.start(lookForTheCard()); });
    engine_.watchIngestDrive();
}

Task<void> SendSession::lookForTheCard() {
    if (ended_) co_return;
    engine_.watchIngestDrive();
    engine_.driveMayBeBack();
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
        if (ended_) co_return;
        if (beat % beatsBetweenRequests == 0) co_await answerRequests();
        if (ended_) co_return;
        tellOfWhatWasSent();
        display_.show(glance());
        endWhenSettled();
    }
}

Task<void> SendSession::answerRequests() {
    if (!opened_) co_return;
    for (RequestFolder::Taken& taken : requests_.takeAll(surroundings_.date())) {
        QueueAnswer answer;
        if (taken.request) {
            answer = co_await desk_.carryOut(std::move(*taken.request));
        } else {
            answer.refuse("The running vark did not understand the request. Are both of the same version?");
        }
        requests_.answer(taken.id, answer);
        if (ended_) co_return;
    }
}

void SendSession::heard(const TransferEngine::Event& event) {
    if (ended_) return;
    if (std::holds_alternative<TransferEngine::JobFinished>(event)) {
        scope_.start(endIfSettled());
    } else if (const auto* refused = std::get_if<TransferEngine::SignedOut>(&event)) {
        if (recovering_) return;
        recovering_ = true;
        display_.say(fmt::format("The vark refused this machine's token{}. It is checked again shortly.",
                                 refused->refused.said ? ": " + *refused->refused.said : ""));
        scope_.start(recoverToken(waitsAfterRefusal));
    } else if (std::holds_alternative<TransferEngine::NoToken>(event)) {
        breakOff(
            ExitCode::notConnected,
            fmt::format("This machine is no longer connected to the vark. Connect again with: vark connect "
                        "URL. {}",
                        howToCarryOn));
    }
}

Task<void> SendSession::recoverToken(std::vector<seconds> waits) {
    recovering_ = true;
    std::string reason;
    for (seconds wait : waits) {
        if (wait > seconds(0)) co_await sleepFor(wait);
        TokenVerdict verdict = co_await judgeToken(surroundings_, api_);
        if (ended_) co_return;
        if (verdict.isGood) {
            recovering_ = false;
            if (engine_.resumeIfTheVarkPausedIt())
                display_.say("The vark accepts the token again. Carrying on.");
            co_return;
        }
        reason = verdict.sentence;
    }
    recovering_ = false;
    breakOff(ExitCode::notConnected,
             fmt::format("{} Connect again with: vark connect URL. {}", reason, howToCarryOn));
}

Task<void> SendSession::endIfSettled() {
    endWhenSettled();
    co_return;
}

void SendSession::endWhenSettled() {
    if (ended_ || !opened_ || recovering_ || closing_) return;
    if (!engine_.job()) {
        breakOff(somePathsFailed_ ? ExitCode::somethingFailed : ExitCode::allLanded,
                 "The queue was cleared.");
        return;
    }
    engine_.recompute();
    const Overall& overall = engine_.overall();
    if (settings_.replaceConflicts && overall.filesConflict > 0)
        engine_.resolveAllConflicts(std::nullopt, *settings_.replaceConflicts);
    if (!engine_.activeItemIDs().empty() || !engine_.overall().allSettled()) return;
    // A card is not done with while a decision waits.
    if (ingest_.ingest() == nullptr || overall.filesConflict > 0) {
        finish(outcome());
        return;
    }
    closing_ = true;
    scope_.start(watched(closeIngest()));
}

ExitCode SendSession::outcome() const {
    const Overall& overall = engine_.overall();
    if (overall.filesFailed > 0 || somePathsFailed_) return ExitCode::somethingFailed;
    return overall.filesConflict > 0 ? ExitCode::decisionWaits : ExitCode::allLanded;
}

Task<void> SendSession::closeIngest() {
    const bool wasOpen = ingest_.isOpen();
    const IngestDesk::Closing closing = co_await ingest_.close();
    closing_ = false;
    // Meanwhile somebody may have queued again what failed, or cleared the queue: the next beat sees to that.
    if (ended_ || ingest_.ingest() == nullptr || !engine_.overall().allSettled()) co_return;
    display_.cardClosed(closing.verdict);
    if (closing.notReported) display_.say(*closing.notReported);
    // People clear cards on this code. Of a card that was reported before, and may be cleared by now, nothing
    // is left to say than that all of the queue has landed.
    const bool isWhole = closing.verdict.isSafe() || (!wasOpen && closing.verdict.missing.empty());
    finish(isWhole && !closing.notReported ? outcome() : ExitCode::somethingFailed);
}

void SendSession::stop(ExitCode code) {
    ended_ = code;
    engine_.maxConcurrentFiles = 0;
    engine_.pauseForQuit();
    // Without a job the file, if there is one, is a queue that could not be read: that stays.
    if (engine_.job()) engine_.flush();
    tellOfWhatWasSent();
}

void SendSession::finish(ExitCode code) {
    stop(code);
    display_.finish(QueueView::of(engine_), code);
}

void SendSession::breakOff(ExitCode code, const std::string& sentence) {
    stop(code);
    display_.breakOff(sentence);
}

void SendSession::press(char key) {
    if (ended_) return;
    if (key == 'q') {
        interrupt();
    } else if (key == 'r') {
        engine_.retryFailed();
    } else if (key == 'p' && engine_.isPaused()) {
        engine_.resume();
    } else if (key == 'p') {
        engine_.pause();
    }
    if (!ended_) display_.show(glance());
}

void SendSession::interrupt() {
    if (ended_) return;
    breakOff(ExitCode::interrupted, std::string("Stopped. ") + std::string(howToCarryOn));
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
