#include <fmt/format.h>
#include <gmock/gmock.h>

#include <semaphore>

#include "Tests/VarkPlatform/ChangedVariables.h"
#include "Tests/VarkPlatform/CurlFixture.h"
#include "Tests/VarkPlatform/OwnNetwork.h"

namespace vark::test {
namespace {

using testing::ElementsAre;

class CurlSessionTest : public CurlFixture {};

const std::string tenBytes = "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello";

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
        {"a whole answer", [](Conversation& client) { client.answer(200, "hello"); }, "200"},
        {"any status is an answer", [](Conversation& client) { client.answer(503, "busy"); }, "503"},
        {"as long as may be", [](Conversation& client) { client.answer(200, std::string(longestAnswer, 'x')); }, "200"},
        {"closed without an answer", [](Conversation&) {}, "connection lost"},
        {"reset without an answer", [](Conversation& client) { client.reset(); }, "connection lost"},
        {"closed in mid-body", [](Conversation& client) { client.write(tenBytes); }, "connection lost"},
        {"reset in mid-body", [](Conversation& client) { client.write(tenBytes); client.reset(); }, "connection lost"},
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
    const ChangedVariables changed({{"SSL_CERT_FILE", ofTheSystem.file()}});
    session = std::make_unique<CurlSession>(settings());
    ScriptedServer known(authority, answeringAll(200));
    ScriptedServer knownToTheSystem(ofTheSystem, answeringAll(200));
    ScriptedServer misnamed(authority.identity("DNS:elsewhere.test"), answeringAll(200));
    ScriptedServer unknown(stranger, answeringAll(200));
    ScriptedServer withoutTLS(authority, [](Conversation& client) {
        client.waitForFirstBytes();
        client.reset();
    });
    const LoopbackPort silent;
    struct Case {
        const char* name;
        URL url;
        std::string outcome;
    };
    const std::vector<Case> cases{
        {"by address", known.url("/"), "200"},
        {"by name", known.url("/", "localhost"), "200"},
        {"an authority of the system's", knownToTheSystem.url("/"), "200"},
        {"another server's certificate", misnamed.url("/"), "untrusted"},
        {"an authority that is not known", unknown.url("/"), "untrusted"},
        {"breaks off the handshake", withoutTLS.url("/"), "cannot connect"},
        {"nobody listens", url(fmt::format("https://127.0.0.1:{}/", silent.port())), "cannot connect"},
        {"no such host", url("https://" + std::string(64, 'a') + ".invalid/"), "cannot find host"},
        {"not the web", url("file:///etc/passwd"), "other"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        EXPECT_EQ(outcome(session->data(request(one.url))), one.outcome);
        EXPECT_EQ(outcome(session->data(request(known.url("/")))), "200") << "on the same session after it";
    }
    HTTPSessionSettings wrong;
    wrong.authorityFile = "/dev/null";
    EXPECT_THROW(CurlSession{wrong}, std::runtime_error);
}

TEST_F(CurlSessionTest, TellsNoNetworkFromANameThatIsNotThere) {
    inOwnNetwork([&](OwnNetwork& network) {
        // Its thread lives in the network of the one that makes it.
        CurlSession here(settings());
        SerialExecutor ofThisThread;
        const auto failureAt = [&](const std::string& host) -> std::string {
            try {
                run(ofThisThread, clock, here.data(request(url("https://" + host + "/"))));
                return "answered";
            } catch (const HTTPError& error) {
                return wordFor(error);
            }
        };
        const std::string noSuchHost = std::string(64, 'a') + ".invalid";
        for (const char* host : {"vark.test", "198.51.100.1", "[2001:db8::1]", noSuchHost.c_str()})
            EXPECT_EQ(failureAt(host), "not connected") << host;
        network.run("ip link set lo up; ip route add default dev lo");
        EXPECT_EQ(failureAt(noSuchHost), "cannot find host");
    });
}

TEST_F(CurlSessionTest, SendsTheRequestAsItIsAndGivesTheAnswerAsItCame) {
    RequestHead received;
    std::string body;
    ScriptedServer server(authority, [&](Conversation& client) {
        while (std::optional<RequestHead> head = client.readHead()) {
            received = *head;
            body = client.readBody(std::stoul(head->header("Content-Length").value_or("0")));
            client.write("HTTP/1.1 103 Early\r\nX-Early: yes\r\n\r\n");
            client.answer(200, std::string("a\0b", 3), "X-One:  two words \r\n");
        }
    });
    HTTPSessionSettings withHeaders = settings();
    withHeaders.headers = {{"User-Agent", "Vark/1"}, {"X-Device", "session"}};
    CurlSession named(withHeaders);
    struct Case {
        std::string method;
        std::string body;
        std::optional<std::string> length;
    };
    for (const Case& one :
         {Case{"GET", "", std::nullopt}, {"POST", "", "0"}, {"PATCH", std::string(5000, 'x'), "5000"}}) {
        SCOPED_TRACE(one.method);
        HTTPRequest asked = request(server.url("/a/../b%20c?d=e%2Ff#g"), one.method);
        asked.headers = {{"x-device", "own"}};
        asked.body = one.body;
        const HTTPResponse response = run(executor, clock, named.data(asked));
        EXPECT_EQ(response.body, std::string("a\0b", 3));
        EXPECT_THAT(response.headers,
                    ElementsAre(HTTPHeader{"Content-Length", "3"}, HTTPHeader{"X-One", "two words"}));
        EXPECT_EQ(received.method, one.method);
        EXPECT_EQ(received.target, "/a/../b%20c?d=e%2Ff");
        EXPECT_EQ(received.header("User-Agent"), "Vark/1");
        EXPECT_EQ(received.header("X-Device"), "own");
        EXPECT_EQ(received.header("Content-Length"), one.length);
        EXPECT_EQ(received.header("Content-Type"), std::nullopt);
        EXPECT_EQ(body, one.body);
    }
    EXPECT_EQ(server.connections(), 1) << "which is kept for the next request";
    HTTPRequest split = request(server.url("/"));
    split.headers = {{"X-Name", "a\r\nX-Other: b"}};
    EXPECT_EQ(outcome(named.data(split)), "other");
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
                 {"first/name", other.url("/landed", "LOCALHOST").text()},
                 {"first/there-and-back", other.url("/back").text()},
                 {"other/back", first.url("/landed").text()},
                 {"first/broken", "http://["},
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
        {"GET", "/name", "200", {"GET first /name token", "GET other /landed"}},
        {"GET", "/there-and-back", "200", {"GET first /there-and-back token", "GET other /back", "GET first /landed"}},
        {"GET", "/broken", "307", {"GET first /broken token"}},
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
    ScriptedServer silent(authority, [](Conversation& client) { client.waitForTheEnd(); });
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
        scope.start(session->data(asking(silent, 3, "GET"))),
        scope.start(session->data(asking(stalling, 3, "GET"))),
    };
    for (const TaskHandle<HTTPResponse>& handle : handles)
        EXPECT_EQ(outcome(handle), "timed out");
    // All of it has gone, and a vark that checks it may take longer.
    EXPECT_FALSE(sent.done());
    othersHaveGivenUp.release();
    EXPECT_EQ(outcome(sent), "200");
}

TEST_F(CurlSessionTest, AsksAServerThatIsSilentWhetherItIsStillThere) {
    std::string timer;
    ScriptedServer server(authority, answeringAll([&](Conversation& client, const RequestHead&) {
                              do {
                                  timer = runTool({"ss", "-tnoH", "dport", std::to_string(server.port())});
                              } while (timer.contains("timer:(on"));
                              client.answer(200, "");
                          }));
    EXPECT_EQ(outcome(session->data(request(server.url("/")))), "200");
    EXPECT_THAT(timer, testing::ContainsRegex("timer:\\(keepalive,(1min|[0-9]+sec)"));
}

}  // namespace
}  // namespace vark::test
