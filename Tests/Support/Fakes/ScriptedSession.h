#pragma once

#include <algorithm>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <utility>
#include <vector>

#include "Tests/Support/UntilCancelled.h"
#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/Services/HTTPSession.h"

namespace vark::test {

/// What a `ScriptedSession` does with one request. Of an upload it takes the whole body first, unless told
/// otherwise; a success that is received has gone to the sink when it fails or hangs.
struct ScriptedAnswer {
    HTTPResponse response = {};
    std::optional<HTTPError> failure = std::nullopt;
    bool hangs = false;
    std::optional<std::int64_t> bytesTaken = std::nullopt;
    bool acceptsShortBody = false;

    /// Takes only so many bytes of the body before it goes on.
    ScriptedAnswer afterTaking(std::int64_t bytes) && {
        bytesTaken = bytes;
        return std::move(*this);
    }
    /// Reads to the end of the body, and goes on although it breaks off.
    ScriptedAnswer afterAShortBody() && {
        acceptsShortBody = true;
        return std::move(*this);
    }
};

inline ScriptedAnswer answer(int status, std::string body = "") {
    return {.response = {status, {}, std::move(body)}};
}

inline ScriptedAnswer redirect(int status, std::string location, std::string body = "") {
    return {.response = {status, {{"Location", std::move(location)}}, std::move(body)}};
}

inline ScriptedAnswer failure(HTTPError::Code code, std::string description = "The system says so.") {
    return {.failure = HTTPError(code, std::move(description))};
}

/// No answer until the task is cancelled; then, as some systems do it, a failure if there is one.
inline ScriptedAnswer hanging(std::optional<HTTPError> thenFailure = std::nullopt) {
    return {.failure = std::move(thenFailure), .hangs = true};
}

/// A session whose answers are written by the test: first those that were queued, then those of `script`. All
/// on the test's executor; bodies are read on a thread of the pool. With the loop's own pool `settle` waits
/// for them; then a test that leaves more than a pipe holds unread needs another pool for its writers.
class ScriptedSession final : public HTTPSession {
  public:
    explicit ScriptedSession(BlockingPool& pool) : pool_(pool) {}

    void queue(ScriptedAnswer next) { queued_.push_back(std::move(next)); }
    void queue(int status, std::string body = "") { queue(answer(status, std::move(body))); }
    std::function<ScriptedAnswer(const HTTPRequest&)> script;

    /// What whoever uses it asked for.
    HTTPSessionSettings settings;
    std::vector<HTTPRequest> requests;
    /// What was taken of the body of each upload, in the order of the uploads.
    std::vector<std::string> uploads;

    Task<HTTPResponse> data(HTTPRequest request) override {
        co_await checkCancellation();
        ScriptedAnswer next = answerTo(std::move(request));
        co_return co_await reply(std::move(next));
    }

    Task<HTTPResponse> upload(HTTPRequest request, std::shared_ptr<BytePipe> body,
                              std::int64_t length) override {
        const auto endReading = [](BytePipe* pipe) { pipe->closeReading(); };
        const std::unique_ptr<BytePipe, decltype(endReading)> end(body.get(), endReading);
        co_await checkCancellation();
        ScriptedAnswer next = answerTo(std::move(request));
        const std::size_t place = uploads.size();
        uploads.emplace_back();
        const auto wanted = static_cast<std::size_t>(std::min(length, next.bytesTaken.value_or(length)));
        auto read = [&body, wanted] { return takeFrom(*body, wanted); };
        std::string taken = co_await pool_.run(read);
        const bool endedEarly = taken.size() < wanted;
        uploads[place] = std::move(taken);
        if (endedEarly && !next.acceptsShortBody) throw HTTPError(HTTPError::other, "The body ended early.");
        co_return co_await reply(std::move(next));
    }

    Task<HTTPResponse> receive(HTTPRequest request, BodySink& sink, FollowRedirect follow) override {
        co_await checkCancellation();
        for (;;) {
            ScriptedAnswer next = answerTo(request);
            if (next.response.status / 100 == 2) {
                const std::string body = std::exchange(next.response.body, "");
                HTTPResponse head = next.response;
                head.headers.push_back({"Content-Length", std::to_string(body.size())});
                sink.take(head, body);
            }
            const HTTPResponse response = co_await reply(std::move(next));
            const std::optional<URL> location = locationIn(response);
            if (!location || !follow({response.status, *location})) co_return response;
            if (location->host() != request.url.host())
                std::erase_if(request.headers, [](auto& header) { return header.name == "Authorization"; });
            request.url = *location;
        }
    }

  private:
    static std::optional<URL> locationIn(const HTTPResponse& response) {
        for (const HTTPHeader& header : response.headers) {
            if (header.name == "Location" && response.status / 100 == 3) return URL::parse(header.value);
        }
        return std::nullopt;
    }

    ScriptedAnswer answerTo(HTTPRequest request) {
        requests.push_back(std::move(request));
        if (!queued_.empty()) {
            ScriptedAnswer next = std::move(queued_.front());
            queued_.pop_front();
            return next;
        }
        if (script) return script(requests.back());
        return failure(HTTPError::other, "No answer was written for " + requests.back().method + " " +
                                             requests.back().url.text());
    }

    static Task<HTTPResponse> reply(ScriptedAnswer next) {
        if (next.hangs) {
            co_await UntilCancelled();
            if (!next.failure) throw CancellationError();
        }
        if (next.failure) throw HTTPError(*next.failure);
        co_return std::move(next.response);
    }

    /// Blocks until there are so many bytes, or the stream has ended.
    static std::string takeFrom(BytePipe& pipe, std::size_t wanted) {
        std::counting_semaphore<> readable(0);
        pipe.setReadable([&readable] { readable.release(); });
        std::string taken(wanted, '\0');
        std::size_t count = 0;
        while (count < wanted) {
            const BytePipe::Read read = pipe.read(std::span(taken).subspan(count));
            count += read.count;
            if (read.state == BytePipe::ReadState::end) break;
            if (read.state == BytePipe::ReadState::nothingYet) readable.acquire();
        }
        pipe.setReadable(nullptr);
        taken.resize(count);
        return taken;
    }

    BlockingPool& pool_;
    std::deque<ScriptedAnswer> queued_;
};

}  // namespace vark::test
