#include <fmt/format.h>
#include <gmock/gmock.h>

#include <semaphore>

#include "Tests/VarkPlatform/CurlFixture.h"

namespace vark::test {
namespace {

using testing::ElementsAre;

using CurlSessionTest = CurlFixture;

/// Far more than anybody wants to have, with no length announced.
void writeWithoutEnd(Conversation& client) {
    client.write("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
    while (client.write("1000\r\n" + std::string(0x1000, 'x') + "\r\n")) {
    }
}

TEST_F(CurlSessionTest, GivesTheAnswerOrSaysWhyThereIsNone) {
    constexpr std::size_t longestAnswer = 100'000;
    struct Case {
        const char* name;
        ScriptedServer::Script afterTheHead;
        std::string outcome;
    };
    // clang-format off
    const std::vector<Case> cases{
        {"as long as may be", [](Conversation& client) { client.answer(200, std::string(longestAnswer, 'x')); }, "200"},
        {"closed without an answer", [](Conversation&) {}, "connection lost"},
        {"reset without an answer", [](Conversation& client) { client.reset(); }, "connection lost"},
        {"closed in mid-body", [](Conversation& client) { client.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello"); }, "connection lost"},
        {"too long, as announced", [](Conversation& client) { client.answer(200, std::string(longestAnswer + 1, 'x')); },
         "answer too long"},
        {"too long with no length announced", writeWithoutEnd, "answer too long"},
        {"no HTTP", [](Conversation& client) { client.write("secret nonsense\r\n\r\n"); }, "other"},
    };
    // clang-format on
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        ScriptedServer server(authority, [&](Conversation& client) {
            if (client.readHead()) one.afterTheHead(client);
        });
        HTTPRequest asked = request(server.url("/things?key=secret"));
        asked.headers = {{"Authorization", "Bearer secret"}};
        asked.longestAnswer = longestAnswer;
        EXPECT_EQ(outcome(session->data(asked)), one.outcome);
    }
}

TEST_F(CurlSessionTest, TrustsNobodyWithoutProof) {
    const TestAuthority stranger;
    const TestAuthority ofTheSystem;
    setenv("SSL_CERT_FILE", ofTheSystem.file().c_str(), 1);
    session = std::make_unique<CurlSession>(settings());
    unsetenv("SSL_CERT_FILE");
    ScriptedServer known(authority, answeringAll(200));
    ScriptedServer knownToTheSystem(ofTheSystem, answeringAll(200));
    ScriptedServer misnamed(authority.identity("DNS:elsewhere.test"), answeringAll(200));
    ScriptedServer unknown(stranger, answeringAll(200));
    ScriptedServer withoutTLS(authority, [](Conversation& client) {
        client.waitForFirstBytes();
        client.reset();
    });
    const LoopbackPort silent;
    const std::vector<std::pair<URL, std::string>> cases{
        {knownToTheSystem.url("/"), "200"},
        {misnamed.url("/"), "untrusted"},
        {unknown.url("/"), "untrusted"},
        {withoutTLS.url("/"), "cannot connect"},
        {url(fmt::format("https://127.0.0.1:{}/", silent.port())), "cannot connect"},
        {url("file:///etc/passwd"), "other"},
    };
    for (const auto& [where, expected] : cases) {
        SCOPED_TRACE(where.text());
        EXPECT_EQ(outcome(session->data(request(where))), expected);
        EXPECT_EQ(outcome(session->data(request(known.url("/")))), "200") << "on the same session after it";
    }
}

TEST_F(CurlSessionTest, SendsTheRequestAsItIs) {
    std::vector<std::string> sent;
    ScriptedServer server(authority, answeringAll([&](Conversation& client, const RequestHead& head) {
                              sent.push_back(fmt::format("{} {} {} {}", head.method, head.target,
                                                         head.header("X-Device").value_or("-"),
                                                         head.header("Content-Length").value_or("-")));
                              client.answer(200, "");
                          }));
    HTTPSessionSettings withHeaders = settings();
    withHeaders.headers = {{"X-Device", "session"}};
    CurlSession named(withHeaders);
    HTTPRequest asked = request(server.url("/a/../b%20c?d=e%2Ff#g"));
    EXPECT_EQ(outcome(named.data(asked)), "200");
    asked.method = "POST";
    asked.headers = {{"x-device", "own"}};
    EXPECT_EQ(outcome(named.data(asked)), "200");
    EXPECT_THAT(sent, ElementsAre("GET /a/../b%20c?d=e%2Ff session -", "POST /a/../b%20c?d=e%2Ff own 0"));
    EXPECT_EQ(server.connections(), 1) << "which is kept for the next request";
    asked.headers = {{"X-Name", "a\r\nX-Other: b"}};
    EXPECT_EQ(outcome(named.data(asked)), "other");
}

TEST_F(CurlSessionTest, FollowsAGetAndLeavesTheTokenBehindWhenTheServerChanges) {
    std::vector<std::string> log;
    std::map<std::string, std::string> redirects;
    const auto logging = [&](const char* name) {
        return answeringAll([&, name](Conversation& client, const RequestHead& head) {
            const char* token = head.header("Authorization") ? " token" : "";
            log.push_back(fmt::format("{} {} {}{}", head.method, name, head.target, token));
            const auto next = redirects.find(name + head.target);
            const bool goesOn = next != redirects.end();
            client.answer(goesOn ? 307 : 200, "", goesOn ? "Location: " + next->second + "\r\n" : "");
        });
    };
    ScriptedServer other(authority, logging("other"));
    ScriptedServer first(authority, logging("first"));
    redirects = {{"first/relative", "landed?x=1"},
                 {"first/port", other.url("/landed").text()},
                 {"first/there-and-back", other.url("/back").text()},
                 {"other/back", first.url("/landed").text()},
                 {"first/circle", "/circle"}};
    struct Case {
        const char* method;
        const char* target;
        const char* outcome;
        std::vector<std::string> log;
    };
    // clang-format off
    const std::vector<Case> cases{
        {"GET", "/relative", "200", {"GET first /relative token", "GET first /landed?x=1 token"}},
        {"GET", "/port", "200", {"GET first /port token", "GET other /landed"}},
        {"GET", "/there-and-back", "200", {"GET first /there-and-back token", "GET other /back", "GET first /landed"}},
        {"GET", "/circle", "other", std::vector<std::string>(11, "GET first /circle token")},
        {"POST", "/port", "307", {"POST first /port token"}},
    };
    // clang-format on
    for (const Case& one : cases) {
        SCOPED_TRACE(one.target);
        log.clear();
        HTTPRequest asked = request(first.url(one.target), one.method);
        asked.headers = {{"authorization", "Bearer secret"}};
        EXPECT_EQ(outcome(session->data(asked)), one.outcome);
        EXPECT_EQ(log, one.log);
    }
}

TEST_F(CurlSessionTest, GivesUpOnAServerThatStandsStill) {
    ScriptedServer stalling(authority, [](Conversation& client) {
        client.readHead();
        client.waitForTheEnd();
    });
    std::binary_semaphore othersHaveGivenUp(0);
    ScriptedServer checking(authority, [&](Conversation& client) {
        client.readHead();
        client.readBody(1);
        othersHaveGivenUp.acquire();
        client.answer(200, "");
    });
    const auto asking = [](const ScriptedServer& one, int seconds, const char* method) {
        HTTPRequest asked = request(one.url("/"), method);
        asked.idleLimit = std::chrono::seconds(seconds);
        return asked;
    };
    const auto whole = std::make_shared<BytePipe>(16);
    const auto unsent = std::make_shared<BytePipe>(16);
    whole->write("x");
    const TaskHandle<HTTPResponse> sent = scope.start(session->upload(asking(checking, 1, "PUT"), whole, 1));
    const TaskHandle<HTTPResponse> handles[] = {
        scope.start(session->upload(asking(stalling, 1, "PUT"), unsent, 10)),
        scope.start(session->data(asking(stalling, 3, "GET"))),
    };
    for (const TaskHandle<HTTPResponse>& handle : handles)
        EXPECT_EQ(outcome(handle), "timed out");
    // All of it has gone, and a vark that checks it may take longer.
    EXPECT_FALSE(sent.done());
    othersHaveGivenUp.release();
    EXPECT_EQ(outcome(sent), "200");
}

}  // namespace
}  // namespace vark::test
