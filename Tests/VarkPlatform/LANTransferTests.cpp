#include "VarkCore/LAN/LANTransfer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <utility>

#include "Tests/Support/CollectedBody.h"
#include "Tests/Support/NginxNode.h"
#include "Tests/Support/TestAuthority.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkPlatform/Linux/Network/TLSDialer.h"

namespace vark::test {
namespace {

using Response = LANTransfer::Response;

/// Transfers over the real dialer, to and from a node that nobody here wrote. Time stands still on the clock
/// of the tasks unless a test moves it.
class LANOverTLSTest : public testing::Test {
  protected:
    TaskHandle<Response> get(const LANRoute& route) {
        body = {};
        return scope.start(lan.get(route, {}, body));
    }
    TaskHandle<Response> put(const LANRoute& route, std::int64_t offset, std::int64_t length) {
        return scope.start(lan.put(folder / "file", offset, length, "application/octet-stream", route,
                                   nullptr, {}, [this](std::int64_t count) { sent = count; }));
    }
    /// The status, or why there is none.
    std::string outcome(const TaskHandle<Response>& handle) {
        executor.runUntil([&] { return handle.done(); });
        try {
            return std::to_string(handle.result().status);
        } catch (const LANTransfer::Failure& failure) {
            return failure.what();
        }
    }

    TestAuthority authority;
    NginxNode nginx{authority.identity("DNS:node.test")};
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

TEST_F(LANOverTLSTest, PutsASliceOfAFileOnANodeAndGetsIt) {
    std::string bytes(20'000'003, '\0');
    for (std::size_t place = 0; place < bytes.size(); ++place)
        bytes[place] = static_cast<char>(place * 37 + place / 4096);
    folder.file("file", bytes);
    constexpr std::int64_t offset = 1'000'001;
    constexpr std::int64_t length = 15'000'007;
    // What lies below the second comes without its length.
    for (const char* path : {"/u/one%20upload/0", "/endless/0"}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(outcome(put(nginx.routeTo(path), offset, length)), "201");
        EXPECT_EQ(sent, length);
        EXPECT_EQ(outcome(get(nginx.routeTo(path))), "200");
        EXPECT_TRUE(body.bytes == bytes.substr(offset, length));
    }
    EXPECT_EQ(outcome(put(nginx.routeTo("/endless/0"), 0, 0)), "204");
    EXPECT_EQ(outcome(get(nginx.routeTo("/missing"))), "404");
}

TEST_F(LANOverTLSTest, TellsANodeThatDoesNotProveItsNameOrHasStopped) {
    EXPECT_EQ(outcome(get(nginx.routeTo("/name"))), "200");
    EXPECT_EQ(body.bytes, "node.test") << "the name is asked for, since a node may have several";
    EXPECT_EQ(outcome(get(nginx.routeTo("/name", "other.test"))),
              "The node on this network did not prove its name.");
    nginx.standStill();
    // The kernel takes the connection for it.
    const TaskHandle<Response> handle = get(nginx.routeTo("/"));
    executor.runUntil([&] { return clock.nextDeadline().has_value(); });
    clock.moveTo(*clock.nextDeadline());
    EXPECT_EQ(outcome(handle), "Could not reach the node on this network: Connection timed out");
}

}  // namespace
}  // namespace vark::test
