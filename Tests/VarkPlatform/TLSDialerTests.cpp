#include "VarkPlatform/Linux/Network/TLSDialer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Tests/Support/ScriptedServer.h"
#include "VarkCore/Concurrency/TaskScope.h"

namespace vark::test {
namespace {

using Dialled = std::unique_ptr<TLSConnection>;

/// Sends the question, and gives whatever comes until the far side ends its stream or the connection is taken
/// away.
Task<std::string> exchange(TLSDialer* dialer, DialTarget target, std::string question, Dialled* kept) {
    *kept = co_await dialer->dial(std::move(target));
    TLSConnection* connection = kept->get();
    co_await connection->send(question);
    std::string all;
    while (*kept) {
        std::vector<char> buffer(100'000);
        const TLSConnection::Received received = co_await connection->receive(buffer);
        all.append(buffer.data(), received.count);
        if (received.finished) co_return all;
    }
    throw CancellationError();
}

/// Time stands still on the clock of the tasks unless a test moves it.
class TLSDialerTest : public testing::Test {
  protected:
    static DialTarget target(const ScriptedServer& server, std::string host = "node.test") {
        return {.ip = "127.0.0.1", .port = server.port(), .host = std::move(host)};
    }
    std::string outcome(const TaskHandle<std::string>& handle) {
        executor.runUntil([&] { return handle.done(); });
        try {
            return handle.result();
        } catch (const DialError& error) {
            return (error.kind() == DialError::tls ? "tls: " : "network: ") + std::string(error.what());
        } catch (const CancellationError&) {
            return "cancelled";
        }
    }
    TaskHandle<std::string> start(DialTarget where, std::string question = "question") {
        return scope.start(
            exchange(dialer.get(), std::move(where), std::move(question), &connections.emplace_back()));
    }
    std::string answer(DialTarget where) { return outcome(start(std::move(where))); }

    TestAuthority authority;
    const std::string identity = authority.identity("DNS:node.test");
    SerialExecutor executor;
    ManualClock clock;
    std::unique_ptr<TLSDialer> dialer = std::make_unique<TLSDialer>(authority.file());
    std::list<Dialled> connections;
    TaskScope scope{executor, clock};
};

void answerHello(Conversation& client) {
    if (client.readBody(8) == "question") client.write("hello");
}

TEST_F(TLSDialerTest, ConnectsOnlyToWhoProvesTheName) {
    struct Case {
        const char* names;
        std::string host;
        std::string outcome;
        int daysOfTheCertificate = 1;
    };
    const std::vector<Case> cases{
        {"DNS:node.test", "node.test", "hello"},
        {"DNS:*.node.test", "one.node.test", "hello"},
        {"IP:127.0.0.1", "127.0.0.1", "hello"},
        {"DNS:other.test", "node.test", "tls: hostname mismatch"},
        {"DNS:node.test", "127.0.0.1", "tls: IP address mismatch"},
        {"DNS:node.test", "node.test", "tls: certificate has expired", -1},
        {"DNS:node.test", "", "tls: there is no name to check"},
        {"DNS:node.test", std::string("node.test\0.evil.test", 20), "tls: the name to check is no name"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.host + " by a certificate for " + one.names);
        const ScriptedServer server(authority.identity(one.names, one.daysOfTheCertificate), answerHello);
        EXPECT_EQ(answer(target(server, one.host)), one.outcome);
    }
    const ScriptedServer server(identity, answerHello);
    connections.clear();
    dialer = std::make_unique<TLSDialer>();
    EXPECT_EQ(answer(target(server)), "tls: unable to get local issuer certificate");
}

TEST_F(TLSDialerTest, TellsHowAConnectionCameToItsEnd) {
    const ScriptedServer resets(identity, [](Conversation& client) {
        answerHello(client);
        client.reset();
    });
    EXPECT_EQ(answer(target(resets)), "network: Connection reset by peer");
    const ScriptedServer endsInTheHandshake(identity,
                                            [](Conversation& client) { client.waitForFirstBytes(); });
    EXPECT_EQ(answer(target(endsInTheHandshake)), "network: Connection reset by peer");
    const LoopbackPort silent;
    EXPECT_EQ(answer({"127.0.0.1", silent.port(), "node.test"}), "network: Connection refused");
    // No name is ever looked up.
    EXPECT_EQ(answer({"localhost", silent.port(), "node.test"}), "network: Invalid argument");
}

TEST_F(TLSDialerTest, EndsACallAtOnceAndIsNotHeldUpByFarSidesThatStandStill) {
    std::atomic<bool> reached = false;
    std::latch over(1);
    const auto say = [&] {
        reached = true;
        executor.wake();
    };
    const ScriptedServer silent(identity, [&](Conversation& client) {
        client.waitForFirstBytes();
        say();
        client.waitForTheEnd();
    });
    const ScriptedServer stuck(identity, [&](Conversation& client) {
        client.readBody(1);
        say();
        over.wait();
    });
    const ScriptedServer server(identity, answerHello);
    struct Case {
        const char* phase;
        const ScriptedServer& server;
        std::size_t question;
    };
    for (const Case& one :
         {Case{"dialling", silent, 1}, {"receiving", stuck, 1}, {"sending", stuck, 20'000'000}}) {
        SCOPED_TRACE(one.phase);
        std::vector<TaskHandle<std::string>> handles;
        for (int count = 0; count < 10; ++count) {
            handles.push_back(start(target(one.server), std::string(one.question, 'x')));
            executor.runUntil([&] { return reached.exchange(false); });
        }
        EXPECT_EQ(answer(target(server)), "hello");
        for (const TaskHandle<std::string>& handle : handles) {
            EXPECT_FALSE(handle.done());
            handle.cancel();
            EXPECT_EQ(outcome(handle), "cancelled");
        }
    }
    const TaskHandle<std::string> taken = start(target(stuck), "x");
    executor.runUntil([&] { return reached.load(); });
    connections.back().reset();
    EXPECT_EQ(outcome(taken), "cancelled");
    over.count_down();
}

}  // namespace
}  // namespace vark::test
