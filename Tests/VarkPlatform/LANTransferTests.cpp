#include "VarkCore/LAN/LANTransfer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Tests/Support/CollectedBody.h"
#include "Tests/Support/NginxNode.h"
#include "Tests/Support/ScriptedServer.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkPlatform/Linux/TLSDialer.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Response = LANTransfer::Response;

constexpr std::size_t manyBytes = 20'000'003;
constexpr const char* unproven = "The node on this network did not prove its name.";

std::string sampleBytes(std::size_t count) {
    std::string bytes(count, '\0');
    for (std::size_t place = 0; place < count; ++place)
        bytes[place] = static_cast<char>(place * 37 + place / 4096);
    return bytes;
}

/// Transfers over the real dialer. Time stands still on the clock of the tasks unless a test moves it.
class LANOverTLSTest : public testing::Test {
  protected:
    NginxNode node(TestAuthority::Validity validity = TestAuthority::Validity::now) const {
        return NginxNode(authority.serverContext({"node.test"}, validity));
    }
    Task<Response> get(LANRoute route) {
        body = {};
        return lan.get(std::move(route), {}, body);
    }
    Task<Response> put(LANRoute route, std::int64_t offset, std::int64_t length) {
        return lan.put(folder / "file", offset, length, "application/octet-stream", std::move(route), nullptr,
                       {}, [this](std::int64_t count) { sent = count; });
    }

    /// The status, or why there is none.
    std::string outcome(const TaskHandle<Response>& handle) {
        executor.runUntil([&] { return handle.done(); });
        try {
            return std::to_string(handle.result().status);
        } catch (const LANTransfer::Failure& failure) {
            return failure.what();
        } catch (const CancellationError&) {
            return "cancelled";
        }
    }
    std::string outcome(Task<Response> transfer) { return outcome(scope.start(std::move(transfer))); }

    TestAuthority authority;
    TemporaryFolder folder;
    SerialExecutor executor;
    ManualClock clock;
    BlockingPool files{4};
    TLSDialer dialer{authority.file()};
    LANTransfer lan{dialer, files};
    CollectedBody body;
    std::atomic<std::int64_t> sent = 0;
    TaskScope scope{executor, clock};
};

TEST_F(LANOverTLSTest, PutsASliceOfAFileOnANode) {
    const std::string bytes = sampleBytes(manyBytes);
    folder.file("file", bytes);
    const NginxNode nginx = node();
    constexpr std::int64_t offset = 1'000'001;
    constexpr std::int64_t length = 15'000'007;
    const TaskHandle<Response> handle = scope.start(put(nginx.routeTo("/u/one%20upload/0"), offset, length));
    EXPECT_EQ(outcome(handle), "201");
    EXPECT_EQ(handle.result().headers.at("connection"), "close");
    EXPECT_EQ(sent, length);
    EXPECT_TRUE(readWholeFile(nginx.served() / "u/one upload/0") == bytes.substr(offset, length));
    EXPECT_EQ(outcome(put(nginx.routeTo("/u/one%20upload/0"), 0, 0)), "204");
    EXPECT_EQ(readWholeFile(nginx.served() / "u/one upload/0"), "");
    EXPECT_EQ(outcome(put(nginx.routeTo("/u/2"), 0, manyBytes + 1)),
              "The node sent less than it said it would.");
}

TEST_F(LANOverTLSTest, GetsAFileFromANodeWithAndWithoutItsLength) {
    const std::string bytes = sampleBytes(manyBytes);
    const NginxNode nginx = node();
    for (const std::string path : {"large", "endless/large"}) {
        SCOPED_TRACE(path);
        std::filesystem::create_directories((nginx.served() / path).parent_path());
        writeAtomically(nginx.served() / path, bytes, 0600, Durability::cached);
        const TaskHandle<Response> handle = scope.start(get(nginx.routeTo("/" + path)));
        EXPECT_EQ(outcome(handle), "200");
        EXPECT_EQ(handle.result().headers.contains("content-length"), path == "large");
        EXPECT_TRUE(body.bytes == bytes);
    }
    const TaskHandle<Response> missing = scope.start(get(nginx.routeTo("/missing")));
    EXPECT_EQ(outcome(missing), "404");
    EXPECT_THAT(missing.result().body, HasSubstr("404 Not Found"));
}

TEST_F(LANOverTLSTest, TellsANodeThatDoesNotProveItsName) {
    const NginxNode nginx = node();
    const NginxNode expired = node(TestAuthority::Validity::past);
    const TestAuthority nobody;
    const NginxNode unknown(nobody.serverContext({"node.test"}));
    EXPECT_EQ(outcome(get(nginx.routeTo("/", "other.test"))), unproven);
    EXPECT_EQ(outcome(get(expired.routeTo("/"))), unproven);
    EXPECT_EQ(outcome(get(unknown.routeTo("/"))), unproven);
}

TEST_F(LANOverTLSTest, GivesUpANodeThatHasStopped) {
    NginxNode nginx = node();
    nginx.standStill();
    // The kernel takes the connection for it.
    const TaskHandle<Response> handle = scope.start(get(nginx.routeTo("/")));
    executor.runUntil([&] { return clock.nextDeadline().has_value(); });
    clock.moveTo(*clock.nextDeadline());
    EXPECT_EQ(outcome(handle), "Could not reach the node on this network: Connection timed out");
    nginx.kill();
    EXPECT_EQ(outcome(get(nginx.routeTo("/"))),
              "Could not reach the node on this network: Connection refused");
}

TEST_F(LANOverTLSTest, TakesAnAnswerThatTrickles) {
    const std::string body = sampleBytes(300);
    const ScriptedServer server(authority.serverContext({"node.test"}), [&](Conversation& client) {
        client.readHead();
        for (const char byte : "HTTP/1.1 200 OK\r\nContent-Length: 300\r\n\r\n" + body)
            client.write({&byte, 1});
        client.waitForTheEnd();
    });
    EXPECT_EQ(outcome(get({server.url("/"), "127.0.0.1", server.port(), "node.test", "/"})), "200");
    EXPECT_TRUE(this->body.bytes == body);
}

TEST_F(LANOverTLSTest, TellsAnAnswerThatBreaksOffOrIsNoLongerWanted) {
    TaskHandle<Response> handle;
    const ScriptedServer server(authority.serverContext({"node.test"}), [&](Conversation& client) {
        const std::optional<RequestHead> head = client.readHead();
        client.write("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n" + std::string(500'000, 'x'));
        if (!head || head->target == "/short") return;
        handle.cancel();
        client.waitForTheEnd();
    });
    const auto routeTo = [&](const std::string& path) {
        return LANRoute{server.url(path), "127.0.0.1", server.port(), "node.test", path};
    };
    EXPECT_EQ(outcome(get(routeTo("/short"))), "The node sent less than it said it would.");
    handle = scope.start(get(routeTo("/cancelled")));
    EXPECT_EQ(outcome(handle), "cancelled");
}

}  // namespace
}  // namespace vark::test
