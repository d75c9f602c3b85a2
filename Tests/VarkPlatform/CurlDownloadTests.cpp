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
        const char* name;
        int status;
        std::string body;
        bool tellsItsLength;
    };
    const std::vector<Case> cases{
        {"large", 200, large, true},   {"without a length", 200, large, false}, {"empty", 200, "", true},
        {"a part", 206, "part", true}, {"a refusal", 404, "Gone", true},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        ScriptedServer server(authority, [&](Conversation& client) {
            client.readHead();
            if (one.tellsItsLength) {
                client.answer(one.status, one.body);
            } else {
                client.write("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + one.body);
            }
        });
        body = {};
        const TaskHandle<HTTPResponse> handle = scope.start(download(server.url("/")));
        EXPECT_EQ(outcome(handle), std::to_string(one.status));
        const bool isSuccess = one.status != 404;
        EXPECT_TRUE(body.bytes == (isSuccess ? one.body : ""));
        EXPECT_EQ(handle.result().body, isSuccess ? "" : one.body);
        EXPECT_EQ(body.pieces > 0, isSuccess) << "it is told of a success without bytes too";
        EXPECT_EQ(body.head.status, isSuccess ? one.status : 0);
    }
}

TEST_F(CurlDownloadTest, FollowsARedirectOnlyAsFarAsItIsAllowedTo) {
    std::vector<std::string> log;
    ScriptedServer other(authority, answeringAll([&](Conversation& client, const RequestHead& head) {
                             log.push_back(head.header("Authorization").value_or("no token"));
                             client.answer(200, "bytes");
                         }));
    ScriptedServer first(
        authority, answeringAll([&](Conversation& client, const RequestHead& head) {
            log.push_back(head.header("Authorization").value_or("no token"));
            const bool isThere = head.target == "/there";
            client.answer(307, "moved",
                          "Location: " + (isThere ? other.url("/elsewhere").text() : "there") + "\r\n");
        }));
    EXPECT_EQ(outcome(download(first.url("/here"))), "200");
    EXPECT_EQ(body.bytes, "bytes");
    EXPECT_THAT(log, testing::ElementsAre("Bearer secret", "Bearer secret", "no token"));
    EXPECT_THAT(redirects, testing::ElementsAre("307 /there", "307 /elsewhere"));

    follow = false;
    const TaskHandle<HTTPResponse> refused = scope.start(download(first.url("/here")));
    EXPECT_EQ(outcome(refused), "307");
    EXPECT_EQ(refused.result().body, "moved");
    EXPECT_EQ(log.size(), 4U);
}

TEST_F(CurlDownloadTest, TellsHowADownloadCameToNoAnswer) {
    struct Case {
        const char* name;
        ScriptedServer::Script end;
        const char* outcome;
    };
    TaskHandle<HTTPResponse> handle;
    const std::vector<Case> cases{
        {"broken off", [](Conversation& client) { client.reset(); }, "connection lost"},
        {"cancelled",
         [&](Conversation& client) {
             handle.cancel();
             client.waitForTheEnd();
         },
         "cancelled"},
        {"sent round in circles",
         [](Conversation& client) {
             // The rest of the first answer, which leads to the same again.
             client.write("five!");
             while (client.readHead())
                 client.answer(302, "", "Location: /again\r\n");
         },
         "other"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        ScriptedServer server(authority, [&](Conversation& client) {
            client.readHead();
            client.write("HTTP/1.1 302 Found\r\nLocation: /again\r\nContent-Length: 10\r\n\r\nhello");
            one.end(client);
        });
        handle = scope.start(download(server.url("/")));
        EXPECT_EQ(outcome(handle), one.outcome);
        EXPECT_EQ(body.bytes, "");
    }
}

TEST_F(CurlDownloadTest, EndsWithWhatItsSinkFailsWith) {
    ScriptedServer server(authority, answeringAll([](Conversation& client, const RequestHead&) {
                              client.answer(200, std::string(1 << 20, 'x'));
                          }));
    body.failure = FileError("Could not write", "file", ENOSPC);
    const TaskHandle<HTTPResponse> handle = scope.start(download(server.url("/")));
    executor.runUntil([&] { return handle.done(); });
    EXPECT_THROW(handle.result(), FileError);
    body.failure.reset();
    EXPECT_EQ(outcome(download(server.url("/"))), "200") << "the session is as good as before";
}

}  // namespace
}  // namespace vark::test
