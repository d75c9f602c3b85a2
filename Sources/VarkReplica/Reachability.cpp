#include "VarkReplica/Reachability.h"

#include "VarkCore/Concurrency/TaskGroup.h"

namespace vark {
namespace {

constexpr Duration betweenTries = std::chrono::seconds(5);
constexpr int unauthorized = 401;

/// Whether the far side was not heard of at all.
bool isSilence(const HTTPError& error) {
    return error.code() != HTTPError::untrusted && error.code() != HTTPError::answerTooLong;
}

Task<void> tellOfSilence(Reachability* reachability) {
    co_await sleepFor(Reachability::patience);
    reachability->metSilence();
}

}  // namespace

Reachability::State Reachability::state() const {
    Locked locked(lock_);
    return state_;
}

Instant Reachability::since() const {
    Locked locked(lock_);
    return since_;
}

void Reachability::become(State state) {
    {
        Locked locked(lock_);
        if (state_ == state || (state_ == State::noWay && state == State::silent)) return;
        const bool isBack = state_ != State::answers && state == State::answers;
        state_ = state;
        since_ = clock_.now();
        lastTry_ = since_;
        if (!isBack) return;
    }
    if (back_) back_();
}

void Reachability::requireWay() {
    Locked locked(lock_);
    if (state_ == State::noWay)
        throw HTTPError(HTTPError::notConnectedToInternet, "There is no way to the network.");
    if (state_ != State::silent) return;
    const Instant now = clock_.now();
    if (now - lastTry_ < betweenTries)
        throw HTTPError(HTTPError::timedOut, "It has not answered for a while.");
    lastTry_ = now;
}

void Reachability::answered(int status) {
    become(status == unauthorized ? State::signedOut : State::answers);
}

void Reachability::metSilence() {
    become(State::silent);
}

void Reachability::pathChanged(bool usable) {
    if (!usable) return become(State::noWay);
    if (state() == State::noWay) become(State::answers);
}

Task<HTTPResponse> WatchedSession::watched(Task<HTTPResponse> call) {
    try {
        HTTPResponse answer = co_await std::move(call);
        reachability_.answered(answer.status);
        co_return answer;
    } catch (const HTTPError& error) {
        if (isSilence(error)) reachability_.metSilence();
        throw;
    }
}

Task<HTTPResponse> WatchedSession::data(HTTPRequest request) {
    reachability_.requireWay();
    std::optional<HTTPResponse> answer;
    auto body = [&](TaskGroup<void>& watch) -> Task<void> {
        watch.add(tellOfSilence(&reachability_));
        answer = co_await watched(session_->data(std::move(request)));
        watch.cancelAll();
    };
    co_await withGroup<void>(body);
    co_return std::move(*answer);
}

Task<HTTPResponse> WatchedSession::upload(HTTPRequest request, std::shared_ptr<BytePipe> body,
                                          std::int64_t length) {
    reachability_.requireWay();
    co_return co_await watched(session_->upload(std::move(request), std::move(body), length));
}

Task<HTTPResponse> WatchedSession::receive(HTTPRequest request, BodySink& sink, FollowRedirect follow) {
    reachability_.requireWay();
    co_return co_await watched(session_->receive(std::move(request), sink, std::move(follow)));
}

}  // namespace vark
