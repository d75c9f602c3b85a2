#include "VarkApp/Queue/QueueHolder.h"

#include <unistd.h>

#include "VarkApp/Queue/QueueDesk.h"
#include "VarkApp/Queue/RequestFolder.h"
#include "VarkCore/Policies/LocalCache.h"

namespace vark::app {

namespace {

constexpr Duration lookAgain = std::chrono::milliseconds(100);
/// How long a request may lie there untaken, and how long one that was taken may go without an answer.
constexpr Duration longestUntaken = std::chrono::seconds(10);
constexpr Duration longestUnanswered = std::chrono::seconds(60);

/// An address that no request ever goes to, for an engine that sends nothing.
const URL nowhere = *URL::parse("https://vark.invalid");

std::shared_ptr<VarkAPI> apiIfConnected(Surroundings& surroundings,
                                        const std::optional<SharedConnection>& connection) {
    if (connection && connection->serverURL()) return surroundings.api(*connection);
    return surroundings.platform.makeAPI(
        {nowhere, std::nullopt}, [] { return std::nullopt; }, surroundings.apiHost());
}

Task<QueueAnswer> changeSavedQueue(Surroundings& surroundings, QueueRequest request) {
    const std::optional<SharedConnection> connection = surroundings.connection();
    const std::shared_ptr<VarkAPI> api = apiIfConnected(surroundings, connection);
    TransferEngine engine(api, surroundings.store(), surroundings.log(), 1, surroundings.engineHost());
    engine.open();
    if (!engine.job()) {
        // Either there is none, or this fails and says why it cannot be read.
        savedQueue(surroundings);
    }
    QueueDesk desk(surroundings, engine, api, connection ? connection->rootPath : "",
                   connection ? connection->clientName : "");
    QueueAnswer answer = co_await desk.carryOut(std::move(request));
    engine.pauseForQuit();
    co_return answer;
}

}  // namespace

QueueLock takeQueue(Surroundings& surroundings) {
    SingleInstance::Lock lock = SingleInstance::reachForLock(surroundings.locations().runningLock());
    SingleInstance::Seen seen;
    // That root stands aside is for the application, which belongs to whoever sits at the screen. A command
    // is run by root on purpose, and then works on root's own queue.
    seen.euid = std::max(geteuid(), 1U);
    seen.mine = getpid();
    seen.lockTaken = lock.isTaken;
    // Who holds the lock is alone, whoever else is starting. Only where it cannot be had does the list count.
    if (!lock.held) seen.others = surroundings.platform.otherSenders();
    if (!std::holds_alternative<SingleInstance::CarryOn>(SingleInstance::verdict(seen))) return nullptr;
    // What an earlier holder was killed in the middle of.
    std::vector<std::filesystem::path> folders = {surroundings.locations().storageFolder()};
    if (surroundings.sharedFolder()) folders.push_back(*surroundings.sharedFolder());
    LocalCache::sweep(folders);
    return std::make_shared<SingleInstance::Lock>(std::move(lock));
}

Task<Asked> takeQueueOrAsk(Surroundings& surroundings, QueueRequest request) {
    if (QueueLock lock = takeQueue(surroundings)) co_return Asked{std::move(lock), {}};
    // To add is the one thing that may be done twice without harm, and the one that may take long: a folder
    // is walked first.
    const bool isAdding = request.command == QueueRequest::Command::add;
    const RequestFolder folder(surroundings.locations().requests());
    const UUID id = folder.ask(request);
    Asked asked;
    for (Duration waited{};; waited += lookAgain) {
        co_await sleepFor(lookAgain);
        const bool isWaiting = folder.isWaiting(id);
        QueueLock lock = takeQueue(surroundings);
        // Looked for after the lock: whoever has let it go has written its last answer.
        if (std::optional<QueueAnswer> answer = folder.takeAnswer(id)) {
            asked.answer = *std::move(answer);
            break;
        }
        if (lock && (folder.withdraw(id) || isAdding)) co_return Asked{std::move(lock), {}};
        if (lock) {
            asked.answer.refuse({"The vark that was sending ended before it said what became of this.",
                                 {{Next::Step::watch}}});
            break;
        }
        if (isWaiting && waited >= longestUntaken && folder.withdraw(id)) {
            asked.answer.refuse(
                "The running vark did not answer. Nothing was changed; try again, or end it first.");
            break;
        }
        if (!isWaiting && !isAdding && waited >= longestUnanswered) {
            asked.answer.refuse(
                {"The running vark took the request and has not answered yet.", {{Next::Step::watch}}});
            break;
        }
    }
    co_return asked;
}

Task<QueueAnswer> changeQueue(Surroundings& surroundings, QueueRequest request) {
    Asked asked = co_await takeQueueOrAsk(surroundings, request);
    if (!asked.lock) co_return std::move(asked.answer);
    co_return co_await changeSavedQueue(surroundings, std::move(request));
}

std::optional<TransferJob> savedQueue(Surroundings& surroundings) {
    try {
        return surroundings.store().load();
    } catch (const std::exception& error) {
        throw Failure(Outcome::failed, {fmt::format("The saved queue cannot be read: {} ({}).",
                                                    surroundings.store().url().string(), error.what()),
                                        {{Next::Step::begin, "Begin a new one"}}});
    }
}

}  // namespace vark::app
