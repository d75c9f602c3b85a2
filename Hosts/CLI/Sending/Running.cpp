#include "Hosts/CLI/Sending/Running.h"

#include <fmt/format.h>

#include "Hosts/CLI/Sending/Sending.h"
#include "VarkApp/Connect/TokenKeeper.h"

namespace vark::cli {

namespace {

/// While a keychain would not say, or a vark could not be asked: neither tells when it is better.
constexpr Duration betweenTries = std::chrono::minutes(1);
constexpr Duration untilItRings = std::chrono::hours(24 * 365);

}  // namespace

Running::Running(CommandSurroundings& surroundings, QueueLock lock)
    : surroundings_(surroundings),
      lock_(std::move(lock)),
      pace_(usualPace(surroundings)),
      display_(surroundings.console),
      requests_(surroundings.locations().requests()),
      bell_(surroundings.executor, surroundings.clock) {}

Running::~Running() = default;

Task<void> Running::run() {
    std::exception_ptr end;
    try {
        co_await goOn();
    } catch (...) {
        end = std::current_exception();
    }
    co_await shielded(leave());
    std::rethrow_exception(end);
}

Task<void> Running::goOn() {
    recordWatch_ = surroundings_.platform.makeFolderWatch();
    recordWatch_->start(surroundings_.neededFolder(), [this] { bell_.ring(); });
    requestWatch_ = surroundings_.platform.makeFolderWatch();
    requestWatch_->start(surroundings_.locations().requests(), [this] { bell_.ring(); });
    settingsWatch_ = surroundings_.platform.makeFolderWatch();
    settingsWatch_->start(surroundings_.locations().settings().parent_path(), [this] { bell_.ring(); });
    while (true) {
        takeUpPace();
        co_await takeUpRecord();
        if (!session_) co_await answerWithoutASession();
        co_await bell_.waitAtMost(session_ ? untilItRings : nextTry_ - surroundings_.clock.now());
    }
}

void Running::takeUpPace() {
    const Pace wanted = usualPace(surroundings_);
    if (wanted == pace_) return;
    pace_ = wanted;
    if (session_) session_->setPace(pace_);
}

bool Running::isConnectedTo(const std::optional<SharedConnection>& record) const {
    return session_ && record && record->server == connection_.server &&
           record->clientName == connection_.clientName && record->rootPath == connection_.rootPath;
}

Task<void> Running::takeUpRecord() {
    const std::optional<SharedConnection> record = surroundings_.connection();
    if (isConnectedTo(record)) {
        if (record->token != connection_.token) session_->tokenMayBeGood();
        connection_.token = record->token;
        co_return;
    }
    // To look at what is kept touches files beside the record, and rings again.
    if (!session_ && record == triedLast_ && surroundings_.clock.now() < nextTry_) co_return;
    co_await leave();
    triedLast_ = record;
    nextTry_ = surroundings_.clock.now() + untilItRings;
    if (record && record->serverURL()) {
        co_await connect();
    } else {
        sayOnce("Not connected to a vark. Connect with: vark connect URL");
    }
}

Task<void> Running::connect() {
    std::string failure;
    try {
        TokenKeeper keeper(surroundings_);
        TokenKeeper::Required required = co_await keeper.require();
        for (const Said& note : required.notes)
            said(note);
        connection_ = std::move(required.connection);
        session_ = std::make_unique<Session>(surroundings_, connection_, lock_, pace_,
                                             static_cast<SessionListener&>(*this));
        session_->takeCardsOfOthers();
        session_->open(true);
    } catch (const Failure& known) {
        failure = inWords(known.said());
    } catch (const VarkAPIError& error) {
        failure = error.errorDescription();
    }
    if (!failure.empty()) {
        session_.reset();
        nextTry_ = surroundings_.clock.now() + betweenTries;
        sayOnce(failure);
        co_return;
    }
    sayOnce(fmt::format("Sending to {} whatever is put into the queue.", connection_.server));
    const std::optional<Said> notReported = co_await session_->settleAccounts();
    if (notReported) said(*notReported);
    co_await session_->start();
}

Task<void> Running::leave() {
    if (!session_) co_return;
    co_await session_->close();
    session_.reset();
}

Task<void> Running::answerWithoutASession() {
    while (std::optional<RequestFolder::Taken> taken = requests_.takeNext(surroundings_.date())) {
        QueueAnswer answer;
        if (taken->request) {
            answer = co_await changeSavedQueue(surroundings_, *std::move(taken->request));
        } else {
            answer.refuse("The running vark did not understand the request. Are both of the same version?");
        }
        requests_.answer(taken->id, answer);
    }
}

void Running::cardClosed(const CardClosed& card) {
    display_.cardClosed(card.verdict);
    if (card.notReported) said(*card.notReported);
}

void Running::sayOnce(const std::string& sentence) {
    if (sentence != saidLast_) display_.say(sentence);
    saidLast_ = sentence;
}

}  // namespace vark::cli
