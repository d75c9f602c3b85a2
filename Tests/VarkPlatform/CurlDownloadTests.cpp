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

}  // namespace
}  // namespace vark::test
