#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "Tests/Support/ScriptedServer.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkPlatform/Linux/CurlSession.h"

namespace vark::test {

/// What became of a request, as a word for a table.
inline std::string wordFor(HTTPError::Code code) {
    switch (code) {
        case HTTPError::notConnectedToInternet:
            return "not connected";
        case HTTPError::connectionLost:
            return "connection lost";
        case HTTPError::cannotConnect:
            return "cannot connect";
        case HTTPError::cannotFindHost:
            return "cannot find host";
        case HTTPError::timedOut:
            return "timed out";
        case HTTPError::untrusted:
            return "untrusted";
        case HTTPError::answerTooLong:
            return "answer too long";
        case HTTPError::other:
            return "other";
    }
}

/// What a person is told is a finished sentence about the vark, and nothing of a library's.
inline void expectWordsForPeople(const std::string& sentence) {
    EXPECT_TRUE(sentence.ends_with('.') && !sentence.ends_with("..")) << sentence;
    EXPECT_TRUE(sentence.contains("vark") || sentence.contains("network")) << sentence;
    for (const char* foreign : {"curl", "SSL", "error", "127.0.0.1", "localhost", "invalid", "secret", "  "})
        EXPECT_FALSE(sentence.contains(foreign)) << sentence;
}

/// A session that trusts the authority of the test's servers, and the test's thread to run tasks on.
class CurlFixture : public testing::Test {
  protected:
    static void SetUpTestSuite() { setenv("no_proxy", "127.0.0.1,localhost", 1); }

    HTTPSessionSettings settings() const {
        HTTPSessionSettings settings;
        settings.authorityFile = authority.file();
        return settings;
    }
    static URL url(const std::string& text) {
        const std::optional<URL> parsed = URL::parse(text);
        if (!parsed) throw std::invalid_argument(text + " is no address");
        return *parsed;
    }
    static HTTPRequest request(const URL& url, std::string method = "GET") {
        return {.method = std::move(method), .url = url, .headers = {}, .body = ""};
    }
    HTTPResponse answerTo(HTTPRequest request) {
        return run(executor, clock, session->data(std::move(request)));
    }

    /// The status, the word for the failure, or "cancelled".
    std::string outcome(const TaskHandle<HTTPResponse>& handle) {
        executor.runUntil([&] { return handle.done(); });
        try {
            return std::to_string(handle.result().status);
        } catch (const HTTPError& error) {
            expectWordsForPeople(error.what());
            return wordFor(error.code());
        } catch (const CancellationError&) {
            return "cancelled";
        }
    }
    std::string outcome(Task<HTTPResponse> task) { return outcome(scope.start(std::move(task))); }

    TestAuthority authority;
    SerialExecutor executor;
    SystemClock clock;
    std::unique_ptr<CurlSession> session = std::make_unique<CurlSession>(settings());
    TaskScope scope{executor, clock};
};

/// Answers every request of a connection that is kept, with a body of the head's making.
template <class Answer>
ScriptedServer::Script answeringAll(Answer answer) {
    return [answer](Conversation& client) {
        while (std::optional<RequestHead> head = client.readHead()) {
            const std::string length = head->header("Content-Length").value_or("0");
            client.readBody(std::stoul(length));
            answer(client, *head);
        }
    };
}

}  // namespace vark::test
