#include "Hosts/CLI/QueueHolder.h"

#include <unistd.h>

#include "Hosts/CLI/QueueDesk.h"
#include "Hosts/CLI/RequestFolder.h"
#include "VarkCore/Concurrency/TaskGroup.h"

namespace vark::cli {

namespace {

constexpr Duration lookAgain = std::chrono::milliseconds(100);
constexpr Duration longestWait = std::chrono::seconds(10);
/// For telling the vark of uploads that are given up; what it is not told it finds out by itself.
constexpr Duration longestFarewell = std::chrono::seconds(5);

/// An address that no request ever goes to, for an engine that sends nothing.
const URL nowhere = *URL::parse("https://vark.invalid");

std::shared_ptr<VarkAPI> apiIfConnected(Surroundings& surroundings,
                                        const std::optional<SharedConnection>& connection) {
    if (connection && connection->serverURL()) return surroundings.api(*connection);
    return surroundings.platform.makeAPI(
        {nowhere, std::nullopt}, [] { return std::nullopt; }, surroundings.apiHost());
}

Task<QueueAnswer> carryOutAndSay(TransferEngine& engine, QueueDesk& desk, QueueRequest request) {
    QueueAnswer answer = co_await desk.carryOut(std::move(request));
    try {
        co_await withTimeout(longestFarewell, engine.serverCancelsDone());
    } catch (const TimeoutError&) {
        // The vark drops what nobody finishes by itself, in time.
    }
    co_return answer;
}

QueueAnswer changeSavedQueue(Surroundings& surroundings, const QueueRequest& request) {
    const std::optional<SharedConnection> connection = surroundings.connection();
    const std::shared_ptr<VarkAPI> api = apiIfConnected(surroundings, connection);
    TransferEngine engine(api, surroundings.store(), surroundings.log(), 1, surroundings.engineHost());
    engine.maxConcurrentFiles = 0;
    engine.start(false);
    if (!engine.job()) {
        // Either there is none, or this fails and says why it cannot be read.
        savedQueue(surroundings);
    }
    QueueDesk desk(engine, api, connection ? connection->rootPath : "",
                   connection ? connection->clientName : "");
    QueueAnswer answer = surroundings.await(carryOutAndSay(engine, desk, request));
    engine.pauseForQuit();
    if (engine.job()) engine.flush();
    return answer;
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
    return std::make_shared<SingleInstance::Lock>(std::move(lock));
}

Task<Asked> takeQueueOrAsk(Surroundings& surroundings, QueueRequest request) {
    if (QueueLock lock = takeQueue(surroundings)) co_return Asked{std::move(lock), {}};
    const RequestFolder folder(surroundings.locations().requests());
    const UUID id = folder.ask(request);
    for (Duration waited{}; waited < longestWait; waited += lookAgain) {
        co_await sleepFor(lookAgain);
        if (std::optional<QueueAnswer> answer = folder.takeAnswer(id))
            co_return Asked{nullptr, std::move(*answer)};
        QueueLock lock = takeQueue(surroundings);
        if (lock && folder.withdraw(id)) co_return Asked{std::move(lock), {}};
    }
    Asked unanswered;
    if (folder.withdraw(id)) {
        unanswered.answer.refuse(
            "The running vark did not answer. Nothing was changed; try again, or end it first.");
    } else {
        unanswered.answer.refuse(
            "The running vark took the request and has not answered yet. Look at the queue with: vark queue");
    }
    co_return unanswered;
}

QueueAnswer changeQueue(Surroundings& surroundings, const QueueRequest& request) {
    const Asked asked = surroundings.await(takeQueueOrAsk(surroundings, request));
    return asked.lock ? changeSavedQueue(surroundings, request) : asked.answer;
}

std::optional<TransferJob> savedQueue(Surroundings& surroundings) {
    try {
        return surroundings.store().load();
    } catch (const std::exception& error) {
        throw CommandError(
            ExitCode::somethingFailed,
            fmt::format("The saved queue cannot be read: {} ({}). Begin a new one with: vark send "
                        "PATH...",
                        surroundings.store().url().string(), error.what()));
    }
}

}  // namespace vark::cli
