#include "VarkApp/Queue/QueueHolder.h"

#include <fmt/format.h>

#include "VarkApp/Queue/QueueDesk.h"

namespace vark::app {

namespace {

/// An address that no request ever goes to, for an engine that sends nothing.
const URL nowhere = *URL::parse("https://vark.invalid");

std::shared_ptr<VarkAPI> apiIfConnected(Surroundings& surroundings,
                                        const std::optional<SharedConnection>& connection) {
    if (connection && connection->serverURL()) return surroundings.api(*connection);
    return surroundings.platform.makeAPI(
        {nowhere, std::nullopt}, [] { return std::nullopt; }, surroundings.apiHost());
}

}  // namespace

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
