#include <fmt/format.h>
#include <gmock/gmock.h>

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
        return session->receive(asked, body, [this](const HTTPRedirect& redirect) {
            redirects.push_back(fmt::format("{} {}", redirect.status, redirect.location.path()));
            return follow;
        });
    }

    CollectedBody body;
    bool follow = true;
    std::vector<std::string> redirects;
};

TEST_F(CurlDownloadTest, HandsOnTheBodyOfASuccessHoweverLongItIs) {
    const std::string large(20 << 20, 'x');
    struct Case {
        int status;
        std::string body;
        bool isHandedOn;
    };
    for (const Case& one :
         {Case{200, large, true}, {200, "", true}, {206, "part", true}, {404, "Gone", false}}) {
        SCOPED_TRACE(one.status);
        ScriptedServer server(authority, [&](Conversation& client) {
            client.readHead();
            client.write(fmt::format("HTTP/1.1 {} Scripted\r\nConnection: close\r\n\r\n", one.status));
            client.write(one.body);
        });
        body = {};
        const TaskHandle<HTTPResponse> handle = scope.start(download(server.url("/")));
        EXPECT_EQ(outcome(handle), std::to_string(one.status));
        EXPECT_TRUE(body.bytes == (one.isHandedOn ? one.body : ""));
        EXPECT_EQ(handle.result().body, one.isHandedOn ? "" : one.body);
        EXPECT_EQ(body.pieces > 0, one.isHandedOn) << "it is told of a success without bytes too";
        EXPECT_EQ(body.head.status, one.isHandedOn ? one.status : 0);
    }
}

TEST_F(CurlDownloadTest, FollowsARedirectOnlyAsFarAsItIsAllowedTo) {
    ScriptedServer other(authority, answeringAll([&](Conversation& client, const RequestHead& head) {
                             client.answer(200, head.header("Authorization") ? "token" : "bytes");
                         }));
    std::map<std::string, std::string> redirectedTo{
        {"/here", "there"}, {"/there", other.url("/elsewhere").text()}, {"/circle", "circle"}};
    ScriptedServer first(authority, answeringAll([&](Conversation& client, const RequestHead& head) {
                             const std::string next = redirectedTo[head.target];
                             client.answer(307, "moved on", "Location: " + next + "\r\n");
                         }));
    EXPECT_EQ(outcome(download(first.url("/here"))), "200");
    EXPECT_EQ(body.bytes, "bytes");
    EXPECT_THAT(redirects, testing::ElementsAre("307 /there", "307 /elsewhere"));

    body = {};
    EXPECT_EQ(outcome(download(first.url("/circle"))), "other");
    EXPECT_EQ(body.bytes, "") << "and the bodies on the way are not too long together";
    follow = false;
    const TaskHandle<HTTPResponse> refused = scope.start(download(first.url("/here")));
    EXPECT_EQ(outcome(refused), "307");
    EXPECT_EQ(refused.result().body, "moved on");
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
