#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/CollectedBody.h"
#include "Tests/Support/Fakes/FakeDialer.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/LAN/LANTransfer.h"
#include "VarkCore/Upload/TokenBucket.h"

namespace vark::test {
namespace {

using std::chrono::milliseconds;
using testing::EndsWith;
using Failure = LANTransfer::Failure;
using Response = LANTransfer::Response;

constexpr std::int64_t piece = 262'144;
const LANRoute route{*URL::parse("https://10.0.0.7:8443/up/1?a=b"), "10.0.0.7", 8443, "node.example",
                     "/up/1"};

class LANTransferTest : public testing::Test {
  public:
    TestLoop loop;
    FakeDialer dialer;
    TemporaryFolder folder;
    CollectedBody body;
    LANTransfer lan{dialer, loop.pool,
                    [this] { return Date{1000 + inSeconds(loop.clock.now().time_since_epoch())}; }};

    Task<Response> get() { return lan.get(route, {{"Range", "bytes=3-"}}, body); }
    Task<Response> put(const std::filesystem::path& file, std::int64_t offset, std::int64_t length,
                       TokenBucket* limiter = nullptr, LANTransfer::PutProgress progress = {}) {
        return lan.put(file, offset, length, "text/plain", route, limiter, {{"X-A", "b"}},
                       std::move(progress));
    }
    std::string failureOf(Task<Response> transfer) {
        try {
            loop.run(std::move(transfer));
        } catch (const Failure& failure) {
            EXPECT_EQ(dialer.open, 0);
            return failure.what();
        }
        return "";
    }
};

TEST_F(LANTransferTest, ARequestGoesOutInOnePiece) {
    const std::string head =
        " /up/1?a=b HTTP/1.1\r\nHost: node.example\r\nConnection: close\r\n"
        "User-Agent: Vark/1.0 (macOS; LAN)\r\nA: b\r\n";
    const std::tuple<std::string, std::optional<std::string>, std::string> cases[] = {
        {"GET", std::nullopt, "\r\n"},
        {"POST", std::nullopt, "Content-Length: 0\r\n\r\n"},
        {"POST", "{}", "Content-Length: 2\r\n\r\n{}"},
    };
    for (const auto& [method, sent, rest] : cases) {
        dialer.queue(nodeAnswer(404, "none", {{"X-Y", " z "}}));
        EXPECT_EQ(loop.run(lan.request(method, route, {{"A", "b"}}, sent)),
                  (Response{404, {{"x-y", "z"}, {"content-length", "4"}}, "none"}));
        EXPECT_EQ(dialer.received.back(), method + head + rest);
        EXPECT_EQ(dialer.sends.back(), 1U);
    }
    EXPECT_EQ(dialer.targets.back().host, "node.example");
}

TEST_F(LANTransferTest, EveryFailureHasItsSentence) {
    const std::pair<ScriptedNode, Failure> cases[] = {
        {nodeRefusal(DialError::network, "No route to host"), Failure::connect("No route to host")},
        {nodeRefusal(DialError::tls, "hostname mismatch"), Failure::certificate()},
        {{.then = ScriptedNode::breaking}, Failure::connect("Connection reset by peer")},
        {{.then = ScriptedNode::breaking, .bytesTaken = 5}, Failure::connect("Connection reset by peer")},
        {{}, Failure::badAnswer("no header")},
        {{.pieces = {"HTTP/1.1 200\r\nContent-Length: 9\r\n\r\n", "abc"}}, Failure::shortBody()},
    };
    for (const auto& [node, failure] : cases) {
        dialer.queue(node);
        EXPECT_EQ(failureOf(lan.request("GET", route, {})), failure.what());
    }
    LANRoute nowhere = route;
    nowhere.port = 0;
    EXPECT_EQ(failureOf(lan.request("GET", nowhere, {})), Failure::connect("bad port").what());
}

TEST_F(LANTransferTest, ANodeThatEchoesTheRequestBringsNoTokenIntoASentence) {
    const std::string token = "6f1c-the-token-93e2";
    for (const std::string& line : {"Authorization: Bearer " + token, "HTTP/1.1 " + token}) {
        dialer.queue({.pieces = {line + "\r\n\r\n"}});
        EXPECT_EQ(failureOf(lan.request("GET", route, {{"authorization", "Bearer " + token}})),
                  Failure::badAnswer("our own request").what());
    }
}

TEST_F(LANTransferTest, AChunkIsSentInPiecesAndCounted) {
    std::string content(3 * piece, 'a');
    content.replace(100, 3, "xyz");
    const std::filesystem::path file = folder.file("f", content);
    dialer.queue(nodeAnswer(200));
    std::vector<std::int64_t> told;
    const auto progress = [&](std::int64_t sent) { told.push_back(sent); };
    EXPECT_EQ(loop.run(put(file, 100, 2 * piece + 5, nullptr, progress)).status, 200);
    EXPECT_THAT(told, testing::ElementsAre(piece, 2 * piece, 2 * piece + 5));
    const std::string& sent = dialer.received.front();
    const std::size_t head = sent.find("\r\n\r\n") + 4;
    EXPECT_THAT(sent.substr(0, head),
                EndsWith("LAN)\r\nContent-Type: text/plain\r\nContent-Length: 524293\r\nX-A: b\r\n\r\n"));
    EXPECT_TRUE(sent.substr(head) == content.substr(100, 2 * piece + 5));
}

TEST_F(LANTransferTest, AFileThatCannotBeSentWholeSaysSo) {
    const std::filesystem::path file = folder.file("f", "abcdef");
    dialer.queue({.then = ScriptedNode::breaking});
    EXPECT_EQ(failureOf(put(file, 2, 5)), Failure::shortBody().what());
    EXPECT_THAT(dialer.received.front(), EndsWith("\r\n\r\ncdef"));

    EXPECT_THROW(loop.run(put(file, -1, 1)), FileError);
    EXPECT_EQ(dialer.targets.size(), 1U) << "no node is asked for what cannot be sent";
}

TEST_F(LANTransferTest, AChunkKeepsThePaceButNoPieceWaitsLongerThanTwoSeconds) {
    const std::filesystem::path file = folder.file("f", std::string(3 * piece, 'x'));
    const std::pair<std::int64_t, milliseconds> cases[] = {{piece, milliseconds(1750)},
                                                           {1, milliseconds(4000)}};
    for (const auto& [rate, duration] : cases) {
        TokenBucket limiter(rate);
        dialer.queue(nodeAnswer(200));
        const TaskHandle<Response> sending = loop.start(put(file, 0, 3 * piece, &limiter));
        loop.advance(duration - milliseconds(1));
        EXPECT_FALSE(sending.done());
        loop.advance(milliseconds(1));
        EXPECT_TRUE(sending.done());
    }
}

TEST_F(LANTransferTest, OnlyTheBodyOfASuccessGoesToTheSink) {
    struct Case {
        ScriptedNode node;
        int pieces;
        std::string received;
        std::string failure = "";
    };
    const std::string head = "HTTP/1.1 206 Part\r\nContent-Length: 6\r\n\r\n";
    const Case cases[] = {
        {{.pieces = {head + "ab", "cd", "efgh"}}, 3, "abcdef"},
        // It is told of a success without bytes too, and has what came before an end.
        {nodeAnswer(200), 1, ""},
        {{.pieces = {head, "abc"}}, 2, "abc", Failure::shortBody().what()},
        {nodeAnswer(404, "none"), 0, ""},
    };
    for (const Case& c : cases) {
        dialer.queue(c.node);
        body = {};
        EXPECT_EQ(failureOf(get()), c.failure);
        EXPECT_EQ(body.bytes, c.received);
        EXPECT_EQ(body.pieces, c.pieces);
    }
    EXPECT_THAT(dialer.received.front(), EndsWith("LAN)\r\nRange: bytes=3-\r\n\r\n"));

    body.failure = FileError("Could not write", "file", ENOSPC);
    dialer.queue(nodeAnswer(200, "abc"));
    EXPECT_THROW(loop.run(get()), FileError);
    EXPECT_EQ(dialer.open, 0);
}

}  // namespace
}  // namespace vark::test
