#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Tests/Support/ScriptedServer.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkPlatform/Linux/Network/CurlSession.h"

namespace vark::test {

/// What became of a request, as a word for a table. What a person is told of it must be a finished sentence
/// about the vark, and nothing of a library's.
inline std::string wordFor(const HTTPError& error) {
    const std::string sentence = error.what();
    EXPECT_TRUE(sentence.ends_with('.') && !sentence.ends_with("..")) << sentence;
    EXPECT_TRUE(sentence.contains("vark") || sentence.contains("network")) << sentence;
    for (const char* foreign : {"curl", "SSL", "error", "127.0.0.1", "localhost", "invalid", "secret"})
        EXPECT_FALSE(sentence.contains(foreign)) << sentence;
    static const std::map<HTTPError::Code, const char*> words{
        {HTTPError::notConnectedToInternet, "not connected"},
        {HTTPError::connectionLost, "connection lost"},
        {HTTPError::cannotConnect, "cannot connect"},
        {HTTPError::cannotFindHost, "cannot find host"},
        {HTTPError::timedOut, "timed out"},
        {HTTPError::untrusted, "untrusted"},
        {HTTPError::answerTooLong, "answer too long"},
        {HTTPError::other, "other"}};
    return words.at(error.code());
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
    static URL url(const std::string& text) { return URL::parse(text).value(); }
    static HTTPRequest request(const URL& url, std::string method = "GET") {
        return {.method = std::move(method), .url = url, .headers = {}, .body = ""};
    }

    /// The status, the word for the failure, or "cancelled".
    std::string outcome(const TaskHandle<HTTPResponse>& handle) {
        executor.runUntil([&] { return handle.done(); });
        try {
            return std::to_string(handle.result().status);
        } catch (const HTTPError& error) {
            return wordFor(error);
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

/// Answers every request of a connection that is kept, when its body has come.
inline ScriptedServer::Script answeringAll(std::function<void(Conversation&, const RequestHead&)> answer) {
    return [answer](Conversation& client) {
        while (const std::optional<RequestHead> head = client.readHead()) {
            client.readBody(std::stoul(head->header("Content-Length").value_or("0")));
            answer(client, *head);
        }
    };
}
inline ScriptedServer::Script answeringAll(int status) {
    return answeringAll([status](Conversation& client, const RequestHead&) { client.answer(status, ""); });
}

}  // namespace vark::test
