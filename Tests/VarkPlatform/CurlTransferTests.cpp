#include <fmt/format.h>

#include "Tests/Support/CollectedBody.h"
#include "Tests/VarkPlatform/CurlFixture.h"

namespace vark::test {
namespace {

class CurlDownloadTest : public CurlFixture {
  protected:
    Task<HTTPResponse> download(const URL& from) {
        HTTPRequest asked = request(from);
        asked.headers = {{"Authorization", "Bearer secret"}};
        asked.longestAnswer = 10;
        return session->receive(asked, body, [this](const HTTPRedirect&) { return follow; });
    }

    CollectedBody body;
    bool follow = true;
};

TEST_F(CurlDownloadTest, HandsOnTheBodyOfASuccessHoweverLongItIs) {
    const std::string large(20 << 20, 'x');
    for (const auto& [status, sent] :
         std::multimap<int, std::string>{{200, large}, {206, ""}, {404, "Gone"}}) {
        SCOPED_TRACE(status);
        ScriptedServer server(authority, [&](Conversation& client) {
            client.readHead();
            client.write(fmt::format("HTTP/1.1 {} Scripted\r\nConnection: close\r\n\r\n{}", status, sent));
        });
        body = {};
        const TaskHandle<HTTPResponse> handle = scope.start(download(server.url("/")));
        EXPECT_EQ(outcome(handle), std::to_string(status));
        const bool isHandedOn = status != 404;
        EXPECT_TRUE(body.bytes == (isHandedOn ? sent : ""));
        EXPECT_EQ(handle.result().body, isHandedOn ? "" : sent);
        EXPECT_EQ(body.head.status, isHandedOn ? status : 0) << "it is told of a success without bytes too";
    }
}

TEST_F(CurlDownloadTest, FollowsARedirectIfItIsAllowedToAndLeavesTheTokenBehind) {
    ScriptedServer other(authority, answeringAll([&](Conversation& client, const RequestHead& head) {
                             client.answer(200, head.header("Authorization") ? "token" : "bytes");
                         }));
    ScriptedServer first(authority, answeringAll([&](Conversation& client, const RequestHead&) {
                             client.answer(307, "moved on", "Location: " + other.url("/").text() + "\r\n");
                         }));
    EXPECT_EQ(outcome(download(first.url("/"))), "200");
    EXPECT_EQ(body.bytes, "bytes");
    follow = false;
    EXPECT_EQ(outcome(download(first.url("/"))), "307");
}

TEST_F(CurlDownloadTest, EndsWithWhatItsSinkFailsWith) {
    ScriptedServer server(authority, answeringAll([](Conversation& client, const RequestHead&) {
                              client.answer(200, std::string(1 << 20, 'x'));
                          }));
    body.failure = FileError("Could not write", "file", ENOSPC);
    EXPECT_THROW(outcome(download(server.url("/"))), FileError);
    body.failure.reset();
    EXPECT_EQ(outcome(download(server.url("/"))), "200") << "the session is as good as before";
}

using CurlUploadTest = CurlFixture;

TEST_F(CurlUploadTest, ComesToAnEndBeforeTheBodyDoes) {
    const auto answerAtOnce = [](Conversation& client) {
        client.answer(404, "no such upload");
        client.waitForTheEnd();
    };
    const auto resetInBetween = [](Conversation& client) {
        client.readBody(10);
        client.reset();
    };
    struct Case {
        const char* name;
        ScriptedServer::Script afterTheHead;
        std::size_t written;
        bool closed;
        std::string outcome;
    };
    const std::vector<Case> cases{
        {"the pipe ends short", [](Conversation& client) { client.waitForTheEnd(); }, 1000, true, "other"},
        {"answered while the writer is slow", answerAtOnce, 10, false, "404"},
        {"reset while the writer is slow", resetInBetween, 10, false, "connection lost"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        const auto pipe = std::make_shared<BytePipe>(64 * 1024);
        ScriptedServer server(authority, [&](Conversation& client) {
            if (client.readHead()) one.afterTheHead(client);
        });
        pipe->write(std::string(one.written, 'x'));
        if (one.closed) pipe->closeWriting();
        EXPECT_EQ(outcome(session->upload(request(server.url("/"), "PUT"), pipe, 1'000'000)), one.outcome);
        EXPECT_EQ(pipe->write("x"), -1) << "nobody reads it any more";
    }
}

}  // namespace
}  // namespace vark::test
