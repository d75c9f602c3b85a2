#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "VarkCore/Concurrency/Clock.h"
#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Services/HTTPSession.h"

namespace vark {

/// Whether the vark answers, from the end of every call and from the machine's own way to the network. Once a
/// call has met silence, one every five seconds tries again and all others fail at once: so a dead network
/// costs a wait once, and not once for each name. Any thread.
class Reachability {
  public:
    enum class State : std::uint8_t { answers, silent, noWay, signedOut };

    /// A call that has no answer by then has met silence, though it goes on.
    static constexpr Duration patience = std::chrono::seconds(5);

    explicit Reachability(const Clock& clock) : clock_(clock), since_(clock.now()) {}

    State state() const;
    /// Since when it has been in that state.
    Instant since() const;
    /// Told when calls may go again that could not, on whatever thread that is seen. Set before anybody
    /// calls.
    void setBack(std::function<void()> back) { back_ = std::move(back); }

    /// Fails with `HTTPError` when a call made now would be in vain.
    void requireWay();
    void answered(int status);
    void metSilence();
    /// For the monitor of the machine's network.
    void pathChanged(bool usable);

  private:
    void become(State state);

    const Clock& clock_;
    std::function<void()> back_;
    mutable Mutex lock_;
    State state_ VARK_GUARDED_BY(lock_) = State::answers;
    Instant since_ VARK_GUARDED_BY(lock_);
    Instant lastTry_ VARK_GUARDED_BY(lock_);
};

/// A session that makes no request that would be in vain, and tells how each one ends. What a person waits
/// for and what goes on behind their back have one each, over the same `Reachability`, which outlives them.
/// Only requests whose answer is all in one piece are given up as silent before they end.
class WatchedSession final : public HTTPSession {
  public:
    WatchedSession(std::shared_ptr<HTTPSession> session, Reachability& reachability)
        : session_(std::move(session)), reachability_(reachability) {}

    Task<HTTPResponse> data(HTTPRequest request) override;
    Task<HTTPResponse> upload(HTTPRequest request, std::shared_ptr<BytePipe> body,
                              std::int64_t length) override;
    Task<HTTPResponse> receive(HTTPRequest request, BodySink& sink, FollowRedirect follow) override;

  private:
    Task<HTTPResponse> watched(Task<HTTPResponse> call);

    const std::shared_ptr<HTTPSession> session_;
    Reachability& reachability_;
};

}  // namespace vark
