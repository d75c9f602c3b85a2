#include <fmt/format.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <semaphore>
#include <set>

#include "Tests/VarkPlatform/ChangedVariables.h"
#include "Tests/VarkPlatform/CurlFixture.h"
#include "Tests/VarkPlatform/OwnNetwork.h"

namespace vark::test {
namespace {

using testing::ElementsAre;

class CurlSessionTest : public CurlFixture {};

/// A port of 127.0.0.1 that nobody listens on for as long as this lives.
class SilentPort {
  public:
    SilentPort() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(socket_.get(), generic, length), 0);
        EXPECT_EQ(getsockname(socket_.get(), generic, &length), 0);
        port_ = ntohs(address.sin_port);
    }
    std::uint16_t port() const { return port_; }

  private:
    Descriptor socket_;
    std::uint16_t port_ = 0;
};

TEST_F(CurlSessionTest, GivesTheAnswerOrSaysWhyThereIsNone) {
    constexpr std::size_t longestAnswer = 100'000;
    struct Case {
        const char* name;
        ScriptedServer::Script afterTheHead;
        std::string outcome;
    };
    const std::vector<Case> cases{
        {"a whole answer", [](Conversation& client) { client.answer(200, "hello"); }, "200"},
        {"any status is an answer", [](Conversation& client) { client.answer(503, "busy"); }, "503"},
        {"as long as may be",
         [](Conversation& client) { client.answer(200, std::string(longestAnswer, 'x')); }, "200"},
        {"a word in between",
         [](Conversation& client) {
             client.write("HTTP/1.1 103 Early\r\nLink: <x>\r\n\r\n");
             client.answer(204, "");
         },
         "204"},
        {"closed without an answer", [](Conversation&) {}, "connection lost"},
        {"reset without an answer", [](Conversation& client) { client.reset(); }, "connection lost"},
        {"closed in mid-body",
         [](Conversation& client) { client.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello"); },
         "connection lost"},
        {"reset in mid-body",
         [](Conversation& client) {
             client.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello");
             client.reset();
         },
         "connection lost"},
        {"a length of 1 GiB announced",
         [](Conversation& client) {
             client.write("HTTP/1.1 200 OK\r\nContent-Length: 1073741824\r\n\r\n");
             client.waitForTheEnd();
         },
         "answer too long"},
        {"too long with no length announced",
         [](Conversation& client) {
             client.write("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
             while (client.write("1000\r\n" + std::string(0x1000, 'x') + "\r\n")) {
             }
         },
         "answer too long"},
        {"no HTTP", [](Conversation& client) { client.write("secret nonsense\r\n\r\n"); }, "other"},
    };
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

TEST_F(CurlSessionTest, GivesHeadersAndBodyAsTheyCame) {
    ScriptedServer server(authority, answeringAll([](Conversation& client, const RequestHead&) {
                              client.write("HTTP/1.1 103 Early\r\nX-Early: yes\r\n\r\n");
                              client.answer(200, std::string("a\0b", 3),
                                            "X-One:  two words \r\nX-Empty:\r\n");
                          }));
    const HTTPResponse response = answerTo(request(server.url("/")));
    EXPECT_EQ(response.body, std::string("a\0b", 3));
    EXPECT_THAT(response.headers, ElementsAre(HTTPHeader{"Content-Length", "3"},
                                              HTTPHeader{"X-One", "two words"}, HTTPHeader{"X-Empty", ""}));
}

TEST_F(CurlSessionTest, TrustsNobodyWithoutProof) {
    const auto answering =
        answeringAll([](Conversation& client, const RequestHead&) { client.answer(200, ""); });
    const TestAuthority stranger;
    ScriptedServer known(authority, answering);
    ScriptedServer misnamed(authority, answering, {"elsewhere.test"});
    ScriptedServer unknown(stranger, answering);
    ScriptedServer withoutTLS(authority, [](Conversation& client) {
        client.waitForFirstBytes();
        client.reset();
    });
    const SilentPort silent;
    struct Case {
        const char* name;
        URL url;
        std::string outcome;
    };
    const std::vector<Case> cases{
        {"by address", known.url("/"), "200"},
        {"by name", known.url("/", "localhost"), "200"},
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
}

TEST_F(CurlSessionTest, TellsNoNetworkFromANameThatIsNotThere) {
    inOwnNetwork([&](OwnNetwork& network) {
        // Its thread lives in the network of the one that makes it.
        session = std::make_unique<CurlSession>(settings());
        const URL noSuchHost = url("https://" + std::string(64, 'a') + ".invalid/");
        for (const URL& one : {url("https://vark.test/"), url("https://198.51.100.1/"),
                               url("https://[2001:db8::1]/"), noSuchHost})
            EXPECT_EQ(outcome(session->data(request(one))), "not connected") << one.text();
        network.bringUp("lo");
        network.addRoute(everywhere, everywhere, "lo");
        EXPECT_EQ(outcome(session->data(request(noSuchHost))), "cannot find host");
    });
}

TEST_F(CurlSessionTest, TrustsTheSystemsAuthoritiesBesideTheFile) {
    const auto answering =
        answeringAll([](Conversation& client, const RequestHead&) { client.answer(200, ""); });
    const TestAuthority ofTheSystem;
    const ChangedVariables changed({{"SSL_CERT_FILE", ofTheSystem.file()}});
    CurlSession both(settings());
    ScriptedServer one(authority, answering);
    ScriptedServer other(ofTheSystem, answering);
    EXPECT_EQ(outcome(both.data(request(one.url("/")))), "200");
    EXPECT_EQ(outcome(both.data(request(other.url("/")))), "200");
}

TEST_F(CurlSessionTest, RefusesAFileThatHoldsNoAuthority) {
    HTTPSessionSettings wrong;
    wrong.authorityFile = "/dev/null";
    EXPECT_THROW(CurlSession{wrong}, std::runtime_error);
}

TEST_F(CurlSessionTest, SendsTheRequestAndNothingOfItsOwnMaking) {
    RequestHead received;
    std::string body;
    ScriptedServer server(authority, [&](Conversation& client) {
        while (std::optional<RequestHead> head = client.readHead()) {
            received = *head;
            body = client.readBody(std::stoul(head->header("Content-Length").value_or("0")));
            client.answer(200, "");
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
    const std::vector<Case> cases{
        {"GET", "", std::nullopt}, {"DELETE", "", std::nullopt},
        {"POST", "", "0"},         {"POST", "{\"a\":1}", "7"},
        {"PUT", "", "0"},          {"PATCH", std::string(5 << 20, 'x'), "5242880"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.method + " " + one.length.value_or("no length"));
        HTTPRequest asked = request(server.url("/a/../b%20c?d=e%2Ff#g"), one.method);
        asked.headers = {{"x-device", "own"}, {"X-Empty", ""}};
        asked.body = one.body;
        EXPECT_EQ(outcome(named.data(asked)), "200");
        EXPECT_EQ(received.method, one.method);
        EXPECT_EQ(received.target, "/a/../b%20c?d=e%2Ff");
        EXPECT_EQ(received.header("User-Agent"), "Vark/1");
        EXPECT_EQ(received.header("X-Device"), "own");
        EXPECT_EQ(received.header("Content-Length"), one.length);
        EXPECT_EQ(received.header("Content-Type"), std::nullopt);
        EXPECT_EQ(received.header("Expect"), std::nullopt);
        EXPECT_TRUE(body == one.body);
        EXPECT_EQ(std::ranges::count(received.headers, std::pair<std::string, std::string>("X-Empty", "")),
                  0);
    }
}

TEST_F(CurlSessionTest, RefusesAHeaderThatWouldPassForTwo) {
    ScriptedServer server(authority, [](Conversation&) {});
    for (const HTTPHeader& header :
         {HTTPHeader{"X-Name", "a\r\nX-Other: b"}, {"X-Name", "a\n"}, {"X\rName", "a"}}) {
        HTTPRequest asked = request(server.url("/"));
        asked.headers = {header};
        EXPECT_EQ(outcome(session->data(asked)), "other");
    }
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(CurlSessionTest, FollowsAGetAndLeavesTheTokenBehindWhenTheServerChanges) {
    std::vector<std::string> log;
    const auto logging = [&](const char* name, auto locationFor) {
        return answeringAll([&log, name, locationFor](Conversation& client, const RequestHead& head) {
            log.push_back(
                fmt::format("{} {}{}", name, head.target, head.header("Authorization") ? " token" : ""));
            const std::optional<std::string> location = locationFor(head.target);
            client.answer(location ? 302 : 200, "", location ? "Location: " + *location + "\r\n" : "");
        });
    };
    std::string back;
    ScriptedServer other(authority, logging("other", [&](const std::string& target) {
                             return target == "/back" ? std::optional(back) : std::nullopt;
                         }));
    const std::string toOther = other.url("").text();
    ScriptedServer first(authority,
                         logging("first", [&](const std::string& target) -> std::optional<std::string> {
                             if (target == "/relative") return "landed?x=1";
                             if (target == "/port") return toOther + "/landed";
                             if (target == "/name")
                                 return "https://LOCALHOST:" + toOther.substr(18) + "/landed";
                             if (target == "/there-and-back") return toOther + "/back";
                             if (target == "/broken") return "http://[";
                             return std::nullopt;
                         }));
    back = first.url("/landed").text();
    struct Case {
        std::string target;
        std::string outcome;
        std::vector<std::string> log;
    };
    const std::vector<Case> cases{
        {"/relative", "200", {"first /relative token", "first /landed?x=1 token"}},
        {"/port", "200", {"first /port token", "other /landed"}},
        {"/name", "200", {"first /name token", "other /landed"}},
        {"/there-and-back", "200", {"first /there-and-back token", "other /back", "first /landed"}},
        {"/broken", "302", {"first /broken token"}},
    };
    for (const Case& one : cases) {
        log.clear();
        HTTPRequest asked = request(first.url(one.target));
        asked.headers = {{"authorization", "Bearer secret"}};
        EXPECT_EQ(outcome(session->data(asked)), one.outcome) << one.target;
        EXPECT_EQ(log, one.log) << one.target;
    }
}

TEST_F(CurlSessionTest, FollowsOnlyRedirectsOfAGetAndNotForEver) {
    int answered = 0;
    ScriptedServer server(authority, answeringAll([&](Conversation& client, const RequestHead& head) {
                              ++answered;
                              // "/307/3" is the third step from the end of a way by 307.
                              const int status = std::stoi(head.target.substr(1, 3));
                              const int left = std::stoi(head.target.substr(5));
                              client.answer(left > 0 ? status : 200, "",
                                            fmt::format("Location: /{}/{}\r\n", status, left - 1));
                          }));
    struct Case {
        std::string method;
        std::string target;
        std::string outcome;
        int answered;
    };
    const std::vector<Case> cases{
        {"GET", "/301/1", "200", 2},    {"GET", "/302/1", "200", 2},   {"GET", "/303/1", "200", 2},
        {"GET", "/307/1", "200", 2},    {"GET", "/308/10", "200", 11}, {"GET", "/302/11", "other", 11},
        {"GET", "/304/1", "304", 1},    {"GET", "/300/1", "300", 1},   {"POST", "/302/1", "302", 1},
        {"DELETE", "/307/1", "307", 1}, {"PUT", "/308/1", "308", 1},
    };
    for (const Case& one : cases) {
        answered = 0;
        EXPECT_EQ(outcome(session->data(request(server.url(one.target), one.method))), one.outcome)
            << one.method << one.target;
        EXPECT_EQ(answered, one.answered) << one.method << one.target;
    }
}

TEST_F(CurlSessionTest, KeepsAConnectionForTheNextRequest) {
    ScriptedServer server(
        authority, answeringAll([](Conversation& client, const RequestHead&) { client.answer(200, "x"); }));
    for (int count = 0; count < 20; ++count)
        EXPECT_EQ(outcome(session->data(request(server.url("/")))), "200");
    EXPECT_EQ(server.connections(), 1);
}

TEST_F(CurlSessionTest, ResumesTheTLSSessionOnANewConnection) {
    std::vector<bool> resumed;
    ScriptedServer server(authority, [&](Conversation& client) {
        if (!client.readHead()) return;
        resumed.push_back(client.isResumed());
        client.answer(200, "", "Connection: close\r\n");
    });
    for (int count = 0; count < 2; ++count)
        EXPECT_EQ(outcome(session->data(request(server.url("/")))), "200");
    EXPECT_THAT(resumed, ElementsAre(false, true));
}

TEST_F(CurlSessionTest, OpensNoMoreThanSixConnectionsToAHostAndKeepsThem) {
    Mutex lock;
    std::condition_variable_any changed;
    int asked = 0;
    std::multiset<int> servedBy;
    ScriptedServer server(authority, answeringAll([&](Conversation& client, const RequestHead&) {
                              Locked hold(lock);
                              servedBy.insert(client.number());
                              ++asked;
                              changed.notify_all();
                              // Each connection has a request before the first is answered.
                              while (asked < 6)
                                  changed.wait(lock);
                              client.answer(200, "");
                          }));
    for (int round = 0; round < 2; ++round) {
        asked = 0;
        std::vector<TaskHandle<HTTPResponse>> handles;
        handles.reserve(18);
        for (int count = 0; count < 18; ++count)
            handles.push_back(scope.start(session->data(request(server.url("/")))));
        for (const TaskHandle<HTTPResponse>& handle : handles)
            EXPECT_EQ(outcome(handle), "200");
        EXPECT_EQ(server.connections(), 6);
    }
    EXPECT_EQ(servedBy.size(), 36U);
}

TEST_F(CurlSessionTest, GivesUpOnAServerThatStandsStill) {
    ScriptedServer server(authority, [](Conversation& client) { client.waitForTheEnd(); });
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
    const auto asking = [](const ScriptedServer& one, int limit) {
        HTTPRequest asked = request(one.url("/"), limit == 1 ? "PUT" : "GET");
        asked.idleLimit = std::chrono::seconds(limit);
        return asked;
    };
    const auto whole = std::make_shared<BytePipe>(16);
    const auto unsent = std::make_shared<BytePipe>(16);
    whole->write("x");
    const TaskHandle<HTTPResponse> sent = scope.start(session->upload(asking(checking, 1), whole, 1));
    const TaskHandle<HTTPResponse> handles[] = {
        scope.start(session->upload(asking(stalling, 1), unsent, 10)),
        scope.start(session->data(asking(server, 3))),
        scope.start(session->data(asking(stalling, 3))),
    };
    for (const TaskHandle<HTTPResponse>& handle : handles)
        EXPECT_EQ(outcome(handle), "timed out");
    // All of it has gone, and a vark that checks it may take longer.
    EXPECT_FALSE(sent.done());
    othersHaveGivenUp.release();
    EXPECT_EQ(outcome(sent), "200");
}

/// The kernel's timer of a connection to this port of this machine, as a kind and hundredths of a second.
std::pair<int, long> timerOfConnectionTo(std::uint16_t port) {
    std::ifstream table("/proc/net/tcp");
    std::string line;
    std::getline(table, line);
    while (std::getline(table, line)) {
        unsigned far = 0;
        int kind = 0;
        unsigned long left = 0;
        const char* form = " %*d: %*8x:%*4x %*8x:%4x %*2x %*8x:%*8x %2x:%8lx";
        if (std::sscanf(line.c_str(), form, &far, &kind, &left) == 3 && far == port)
            return {kind, static_cast<long>(left)};
    }
    return {};
}

TEST_F(CurlSessionTest, AsksAServerThatIsSilentWhetherItIsStillThere) {
    constexpr int keepAlive = 2;
    std::binary_semaphore looked(0);
    ScriptedServer server(authority, answeringAll([&](Conversation& client, const RequestHead&) {
                              client.write("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\na");
                              looked.acquire();
                              client.write("b");
                          }));
    /// Looks when the first byte has come, while the server is silent.
    struct Look final : BodySink {
        std::function<void()> look;
        void take(const HTTPResponse&, std::string_view) override {
            if (look) std::exchange(look, nullptr)();
        }
    };
    std::optional<std::pair<int, long>> timer;
    Look sink;
    sink.look = [&] {
        timer = timerOfConnectionTo(server.port());
        looked.release();
    };
    EXPECT_EQ(outcome(session->receive(request(server.url("/")), sink, [](auto&) { return true; })), "200");
    ASSERT_TRUE(timer);
    EXPECT_EQ(timer->first, keepAlive);
    EXPECT_LE(timer->second, 6'000);
}

}  // namespace
}  // namespace vark::test
