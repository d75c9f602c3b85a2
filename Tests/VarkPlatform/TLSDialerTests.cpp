#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Tests/Support/ScriptedServer.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkPlatform/Linux/TLSDialer.h"

namespace vark::test {
namespace {

using Dialled = std::unique_ptr<TLSConnection>;

/// Whatever comes until the far side ends its stream.
Task<std::string> everythingFrom(TLSConnection* connection) {
    std::string all;
    while (true) {
        std::vector<char> buffer(100'000);
        const TLSConnection::Received received = co_await connection->receive(buffer);
        all.append(buffer.data(), received.count);
        if (received.finished) co_return all;
    }
}

Task<void> connect(TLSDialer* dialer, DialTarget target, Dialled* into) {
    *into = co_await dialer->dial(std::move(target));
}

Task<std::string> exchange(TLSDialer* dialer, DialTarget target, std::string question) {
    const Dialled connection = co_await dialer->dial(std::move(target));
    co_await connection->send(question);
    co_return co_await everythingFrom(connection.get());
}

Task<std::string> sendForever(TLSConnection* connection) {
    const std::string block(1'000'000, 'x');
    while (true)
        co_await connection->send(block);
}

/// Holds up the threads of scripts until it is opened.
class Latch {
  public:
    void wait() { open_.wait(false); }
    void open() {
        open_ = true;
        open_.notify_all();
    }

  private:
    std::atomic<bool> open_ = false;
};

/// Time stands still on the clock of the tasks unless a test moves it.
class TLSDialerTest : public testing::Test {
  protected:
    static DialTarget target(const ScriptedServer& server, std::string host = "node.test") {
        return {.ip = "127.0.0.1", .port = server.port(), .host = std::move(host)};
    }
    ScriptedServer serverFor(ScriptedServer::Script script) {
        return {authority.serverContext({"node.test"}), std::move(script)};
    }
    Dialled connectionTo(const ScriptedServer& server) {
        Dialled connection;
        run(executor, clock, connect(dialer.get(), target(server), &connection));
        return connection;
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
    std::string outcome(Task<std::string> task) { return outcome(scope.start(std::move(task))); }
    std::string answer(TLSDialer& by, DialTarget where) {
        return outcome(exchange(&by, std::move(where), "question"));
    }
    /// Sets the flag from the thread of a script.
    void raise(std::atomic<bool>& flag) {
        flag = true;
        executor.wake();
    }

    TestAuthority authority;
    SerialExecutor executor;
    ManualClock clock;
    std::unique_ptr<TLSDialer> dialer = std::make_unique<TLSDialer>(authority.file());
    TaskScope scope{executor, clock};
};

void answerWithTheName(Conversation& client) {
    if (client.readBody(8) == "question") client.write("I am " + client.serverName());
}

TEST_F(TLSDialerTest, ConnectsOnlyToWhoProvesTheName) {
    using enum TestAuthority::Validity;
    struct Case {
        std::vector<std::string> names;
        TestAuthority::Validity validity;
        std::string host;
        std::string outcome;
    };
    const std::vector<Case> cases{
        {{"node.test"}, now, "node.test", "I am node.test"},
        {{"other.test", "node.test"}, now, "NODE.test", "I am NODE.test"},
        {{"*.node.test"}, now, "one.node.test", "I am one.node.test"},
        // A number is no name to ask for, but a certificate may be for one.
        {{"127.0.0.1"}, now, "127.0.0.1", "I am "},
        {{"other.test"}, now, "node.test", "tls: hostname mismatch"},
        {{"node.test"}, now, "127.0.0.1", "tls: IP address mismatch"},
        {{"*.node.test"}, now, "in.one.node.test", "tls: hostname mismatch"},
        {{"node.test"}, past, "node.test", "tls: certificate has expired"},
        {{"node.test"}, now, "", "tls: there is no name to check"},
        {{"node.test"}, now, std::string("node.test\0.evil.test", 20), "tls: the name to check is no name"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.host + " by a certificate for " + one.names.front());
        const ScriptedServer server(authority.serverContext(one.names, one.validity), answerWithTheName);
        EXPECT_EQ(answer(*dialer, target(server, one.host)), one.outcome);
    }
}

TEST_F(TLSDialerTest, TrustsNobodyWhomTheSystemDoesNotKnow) {
    const ScriptedServer server = serverFor(answerWithTheName);
    TLSDialer untold;
    EXPECT_EQ(answer(untold, target(server)), "tls: unable to get local issuer certificate");
    EXPECT_THROW(TLSDialer("/nowhere/authority.pem"), std::runtime_error);
}

TEST_F(TLSDialerTest, TellsAFailureOfTLSFromOneOfTheNetwork) {
    ServerContext old = authority.serverContext({"node.test"});
    SSL_CTX_set_max_proto_version(old.get(), TLS1_1_VERSION);
    // Debian's own level refuses the server's side of it too.
    SSL_CTX_set_security_level(old.get(), 0);
    const ScriptedServer outdated(std::move(old), answerWithTheName);
    EXPECT_EQ(answer(*dialer, target(outdated)), "tls: tlsv1 alert protocol version");

    const ScriptedServer plain = serverFor([](Conversation& client) {
        client.waitForFirstBytes();
        client.writeWithoutTLS("HTTP/1.1 400 Bad Request\r\n\r\n");
    });
    EXPECT_EQ(answer(*dialer, target(plain)), "tls: wrong version number");

    const ScriptedServer gone = serverFor([](Conversation& client) { client.waitForFirstBytes(); });
    EXPECT_EQ(answer(*dialer, target(gone)), "network: Connection reset by peer");

    DialTarget closed{.ip = "127.0.0.1", .port = 0, .host = "node.test"};
    {
        closed.port = serverFor(answerWithTheName).port();
    }
    EXPECT_EQ(answer(*dialer, closed), "network: Connection refused");

    // No name is ever looked up.
    EXPECT_EQ(answer(*dialer, {.ip = "localhost", .port = plain.port(), .host = "node.test"}),
              "network: Invalid argument");
}

TEST_F(TLSDialerTest, GivesUpAHandshakeThatIsNotAnsweredInFiveSeconds) {
    std::atomic<bool> asked = false;
    const ScriptedServer server = serverFor([&](Conversation& client) {
        client.waitForFirstBytes();
        raise(asked);
        client.waitForTheEnd();
    });
    const auto handle = scope.start(exchange(dialer.get(), target(server), ""));
    executor.runUntil([&] { return asked.load() && clock.nextDeadline().has_value(); });
    clock.moveTo(clock.now() + std::chrono::milliseconds(4999));
    executor.runReady();
    EXPECT_FALSE(handle.done());
    clock.moveTo(clock.now() + std::chrono::milliseconds(1));
    EXPECT_EQ(outcome(handle), "network: Connection timed out");
}

TEST_F(TLSDialerTest, EndsACallAtOnceWhenItsTaskIsCancelled) {
    std::atomic<bool> reached = false;
    const ScriptedServer silent = serverFor([&](Conversation& client) {
        client.waitForFirstBytes();
        raise(reached);
        client.waitForTheEnd();
    });
    const auto dialling = scope.start(exchange(dialer.get(), target(silent), ""));
    executor.runUntil([&] { return reached.load(); });
    dialling.cancel();
    EXPECT_EQ(outcome(dialling), "cancelled");

    Latch over;
    const ScriptedServer server = serverFor([&](Conversation& client) {
        client.readBody(1);
        raise(reached);
        over.wait();
    });
    for (const bool isSending : {false, true}) {
        SCOPED_TRACE(isSending ? "sending" : "receiving");
        const Dialled connection = connectionTo(server);
        reached = false;
        const auto handle = scope.start(isSending ? sendForever(connection.get())
                                                  : exchange(dialer.get(), target(server), "x"));
        executor.runUntil([&] { return reached.load(); });
        handle.cancel();
        EXPECT_EQ(outcome(handle), "cancelled");
    }

    const auto before = scope.start(exchange(dialer.get(), target(server), "x"));
    before.cancel();
    EXPECT_EQ(outcome(before), "cancelled");
    over.open();
}

TEST_F(TLSDialerTest, EndsACallWhoseConnectionIsTakenAway) {
    std::atomic<bool> reached = false;
    const ScriptedServer server = serverFor([&](Conversation& client) {
        client.write("hello");
        client.waitForTheEnd();
        raise(reached);
    });
    Dialled connection = connectionTo(server);
    const auto handle = scope.start(everythingFrom(connection.get()));
    executor.runReady();
    connection.reset();
    EXPECT_EQ(outcome(handle), "cancelled");
    executor.runUntil([&] { return reached.load(); });
}

TEST_F(TLSDialerTest, TakesAnyEndForAnEndAndAResetForAFailure) {
    struct Case {
        const char* name;
        void (*end)(Conversation&);
        const char* outcome;
    };
    const std::vector<Case> cases{
        {"with a farewell", [](Conversation& client) { client.sayGoodbye(); }, "hello"},
        {"without one", [](Conversation&) {}, "hello"},
        {"reset", [](Conversation& client) { client.reset(); }, "network: Connection reset by peer"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        const ScriptedServer server = serverFor([&](Conversation& client) {
            client.readBody(8);
            client.write("hello");
            one.end(client);
        });
        EXPECT_EQ(answer(*dialer, target(server)), one.outcome);
    }
}

TEST_F(TLSDialerTest, CarriesManyBytesBothWaysInPiecesOfAnySize) {
    const std::vector<std::size_t> sizes{1, 16'383, 16'384, 16'385, 400'000, 7'000'000};
    for (const std::size_t size : sizes) {
        SCOPED_TRACE(size);
        std::string bytes(size, '\0');
        for (std::size_t place = 0; place < size; ++place)
            bytes[place] = static_cast<char>(place * 31 + place / 1000);
        const ScriptedServer server =
            serverFor([&](Conversation& client) { client.write(client.readBody(size)); });
        // Not by EXPECT_EQ, which would print all of it.
        EXPECT_TRUE(outcome(exchange(dialer.get(), target(server), bytes)) == bytes);
    }
}

TEST_F(TLSDialerTest, IsNotHeldUpByFarSidesThatDoNotRead) {
    Latch over;
    const ScriptedServer stuck = serverFor([&](Conversation& client) {
        client.readBody(1);
        over.wait();
    });
    const ScriptedServer server = serverFor(answerWithTheName);
    std::vector<Dialled> connections;
    std::vector<TaskHandle<std::string>> sending;
    for (int count = 0; count < 10; ++count) {
        connections.push_back(connectionTo(stuck));
        sending.push_back(scope.start(sendForever(connections.back().get())));
    }
    EXPECT_EQ(answer(*dialer, target(server)), "I am node.test");
    for (const TaskHandle<std::string>& handle : sending) {
        EXPECT_FALSE(handle.done());
        handle.cancel();
        EXPECT_EQ(outcome(handle), "cancelled");
    }
    over.open();
}

}  // namespace
}  // namespace vark::test
