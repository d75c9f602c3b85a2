#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "Tests/Support/CollectedBody.h"
#include "Tests/Support/FakeDialer.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/LAN/LANTransfer.h"
#include "VarkCore/Upload/TokenBucket.h"

namespace vark {
namespace {

using std::chrono::milliseconds;
using test::FakeDialer;
using test::nodeAnswer;
using test::nodeRefusal;
using test::ScriptedNode;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using Failure = LANTransfer::Failure;
using Response = LANTransfer::Response;

const std::string token = "6f1c-the-token-93e2";

LANRoute routeTo(std::string_view path = "/up/1?a=b") {
    return {*URL::parse("https://10.0.0.7:8443" + std::string(path)), "10.0.0.7", 8443, "node.example",
            std::string(path)};
}

class LANTransferTest : public testing::Test {
  public:
    test::TestLoop loop;
    FakeDialer dialer;
    TemporaryFolder folder;
    LANTransfer lan{dialer, loop.pool, [this] { return dateOf(loop.clock.now()); }};

    static Date dateOf(Instant instant) { return Date{1000 + inSeconds(instant.time_since_epoch())}; }

    Task<Response> get() { return lan.get(routeTo(), {{"Range", "bytes=3-"}}, body); }
    Task<Response> put(const std::filesystem::path& file, std::int64_t offset, std::int64_t length,
                       TokenBucket* limiter = nullptr, LANTransfer::PutProgress progress = {}) {
        return lan.put(file, offset, length, "application/octet-stream", routeTo(), limiter, {{"X-A", "b"}},
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
    test::CollectedBody body;
};

TEST_F(LANTransferTest, ARequestGoesOutInOnePiece) {
    const std::string start =
        " /up/1?a=b HTTP/1.1\r\nHost: node.example\r\nConnection: close\r\nUser-Agent: Vark/1.0 (macOS; "
        "LAN)\r\n";
    struct Case {
        std::string method;
        std::optional<std::string> body;
        std::string rest;
    };
    const Case cases[] = {
        {"GET", std::nullopt, "A: b\r\n\r\n"},
        {"POST", std::nullopt, "A: b\r\nContent-Length: 0\r\n\r\n"},
        {"POST", "{}", "A: b\r\nContent-Length: 2\r\n\r\n{}"},
        {"DELETE", "", "A: b\r\nContent-Length: 0\r\n\r\n"},
    };
    for (const Case& example : cases) {
        dialer.queue(nodeAnswer(404, "none", {{"X-Y", " z "}}));
        const Response response =
            loop.run(lan.request(example.method, routeTo(), {{"A", "b"}}, example.body));
        EXPECT_EQ(response, (Response{404, {{"x-y", "z"}, {"content-length", "4"}}, "none"}));
        EXPECT_EQ(dialer.received.back(), example.method + start + example.rest);
        EXPECT_EQ(dialer.sends.back(), 1U);
        EXPECT_EQ(dialer.open, 0);
    }
    const DialTarget& target = dialer.targets.back();
    EXPECT_EQ(target.ip + " " + std::to_string(target.port) + " " + target.host,
              "10.0.0.7 8443 node.example");
}

TEST_F(LANTransferTest, EveryFailureHasItsSentence) {
    struct Case {
        ScriptedNode node;
        Failure failure;
    };
    const Case cases[] = {
        {nodeRefusal(DialError::network, "No route to host"), Failure::connect("No route to host")},
        {nodeRefusal(DialError::tls, "hostname mismatch"), Failure::certificate()},
        {{.then = ScriptedNode::breaking}, Failure::connect("Connection reset by peer")},
        {{.then = ScriptedNode::breaking, .bytesTaken = 5}, Failure::connect("Connection reset by peer")},
        {{}, Failure::badAnswer("no header")},
        {{.pieces = {"HTTP/1.1 200\r\nContent-Length: 9\r\n\r\n", "abc"}}, Failure::shortBody()},
    };
    for (const Case& example : cases) {
        dialer.queue(example.node);
        EXPECT_EQ(failureOf(lan.request("GET", routeTo(), {})), example.failure.what());
    }
    EXPECT_STREQ(Failure::shortBody().what(), "The node sent less than it said it would.");
    EXPECT_STREQ(Failure::status(503).what(), "The node answered 503.");
    EXPECT_STREQ(Failure::status(503, "Too busy.").what(), "Too busy.");

    LANRoute nowhere = routeTo();
    nowhere.port = 0;
    EXPECT_EQ(failureOf(lan.request("GET", nowhere, {})), Failure::connect("bad port").what());
}

TEST_F(LANTransferTest, ANodeThatEchoesTheRequestBringsNoTokenIntoASentence) {
    for (const std::string& line : {"Authorization: Bearer " + token, "HTTP/1.1 " + token}) {
        dialer.queue({.pieces = {line + "\r\n\r\n"}});
        const std::string failure =
            failureOf(lan.request("GET", routeTo(), {{"authorization", "Bearer " + token}}));
        EXPECT_EQ(failure, Failure::badAnswer("our own request").what());
    }
}

TEST_F(LANTransferTest, ABodyInMemoryIsBoundedWhateverTheHeadPromises) {
    ScriptedNode node{.pieces = {"HTTP/1.1 200\r\nContent-Length: 9223372036854775807\r\n\r\n"},
                      .then = ScriptedNode::silence};
    for (int megabyte = 0; megabyte < 33; ++megabyte)
        node.pieces.emplace_back(1 << 20, 'x');
    dialer.queue(node);
    EXPECT_EQ(failureOf(lan.request("GET", routeTo(), {})), Failure::badAnswer("body too long").what());
}

TEST_F(LANTransferTest, AChunkIsSentInPiecesAndCounted) {
    constexpr std::int64_t piece = 262'144;
    std::string content(3 * piece, 'a');
    content.replace(100, 3, "xyz");
    const std::filesystem::path file = folder.file("f", content);
    dialer.queue(nodeAnswer(200));
    std::vector<std::int64_t> told;
    const auto progress = [&](std::int64_t sent) { told.push_back(sent); };
    EXPECT_EQ(loop.run(put(file, 100, 2 * piece + 5, nullptr, progress)).status, 200);
    EXPECT_THAT(told, ElementsAre(piece, 2 * piece, 2 * piece + 5));
    const std::string& sent = dialer.received.front();
    const std::size_t head = sent.find("\r\n\r\n") + 4;
    EXPECT_THAT(sent, StartsWith("PUT /up/1?a=b HTTP/1.1\r\n"));
    EXPECT_THAT(sent.substr(0, head), HasSubstr("LAN)\r\nContent-Type: application/octet-stream\r\n"
                                                "Content-Length: 524293\r\nX-A: b\r\n\r\n"));
    EXPECT_TRUE(sent.substr(head) == content.substr(100, 2 * piece + 5));
}

TEST_F(LANTransferTest, AFileThatCannotBeSentWholeSaysSo) {
    const std::filesystem::path file = folder.file("f", "abcdef");
    dialer.queue({.then = ScriptedNode::breaking});
    EXPECT_EQ(failureOf(put(file, 2, 5)), Failure::shortBody().what());
    EXPECT_THAT(dialer.received.front(), testing::EndsWith("\r\n\r\ncdef"));

    EXPECT_THROW(loop.run(put(folder / "none", 0, 1)), FileError);
    EXPECT_THROW(loop.run(put(file, -1, 1)), FileError);
    EXPECT_EQ(dialer.targets.size(), 1U) << "no node is asked for what cannot be sent";
}

TEST_F(LANTransferTest, AChunkKeepsThePaceButNoPieceWaitsLongerThanTwoSeconds) {
    const std::filesystem::path file = folder.file("f", std::string(3 * 262'144, 'x'));
    TokenBucket limiter(262'144);
    dialer.queue(nodeAnswer(200));
    const TaskHandle<Response> sending = loop.start(put(file, 0, 3 * 262'144, &limiter));
    const auto bytesSent = [&] { return dialer.received.front().size() / 262'144; };
    loop.settle();
    EXPECT_EQ(bytesSent(), 1U);
    loop.advance(milliseconds(749));
    EXPECT_EQ(bytesSent(), 1U);
    loop.advance(milliseconds(1));
    EXPECT_EQ(bytesSent(), 2U);
    loop.advance(milliseconds(1000));
    EXPECT_TRUE(sending.done());

    limiter.setBytesPerSecond(1);
    dialer.queue(nodeAnswer(200));
    const TaskHandle<Response> slow = loop.start(put(file, 0, 3 * 262'144, &limiter));
    loop.advance(milliseconds(3999));
    EXPECT_FALSE(slow.done());
    loop.advance(milliseconds(1));
    EXPECT_TRUE(slow.done());
}

TEST_F(LANTransferTest, OnlyTheBodyOfASuccessGoesToTheSink) {
    dialer.queue({.pieces = {"HTTP/1.1 206 Part\r\nContent-Length: 6\r\n\r\nab", "cd", "efgh"},
                  .then = ScriptedNode::silence});
    EXPECT_EQ(loop.run(get()).body, "");
    EXPECT_EQ(body.bytes, "abcdef");
    EXPECT_EQ(body.head.status, 206);
    EXPECT_EQ(body.head.headers, (std::vector<HTTPHeader>{{"content-length", "6"}}));
    EXPECT_THAT(dialer.received.front(), testing::EndsWith("LAN)\r\nRange: bytes=3-\r\n\r\n"));

    body = {};
    dialer.queue({.pieces = {"HTTP/1.1 200\r\nContent-Length: 0\r\n", "\r\n"}});
    loop.run(get());
    EXPECT_EQ(body.pieces, 1) << "it is told of a success without bytes too";

    body = {};
    dialer.queue(nodeAnswer(404, "none"));
    EXPECT_EQ(loop.run(get()).body, "none");
    EXPECT_EQ(body.pieces, 0);
}

TEST_F(LANTransferTest, ADownloadThatBreaksOffHasHandedOnWhatHasCome) {
    dialer.queue({.pieces = {"HTTP/1.1 200\r\nContent-Length: 6\r\n\r\n", "abc"}});
    EXPECT_EQ(failureOf(get()), Failure::shortBody().what());
    EXPECT_EQ(body.bytes, "abc");

    body.failure = FileError("Could not write", "file", ENOSPC);
    dialer.queue(nodeAnswer(200, "abc"));
    EXPECT_THROW(loop.run(get()), FileError);
    EXPECT_EQ(dialer.open, 0);
}

TEST_F(LANTransferTest, ACancelledTransferEndsWhereverItStands) {
    const std::filesystem::path file = folder.file("f", std::string(300'000, 'x'));
    TokenBucket limiter(1);
    const ScriptedNode cases[] = {
        {.hangsAtDialling = true},
        {.then = ScriptedNode::silence, .bytesTaken = 50},
        {.then = ScriptedNode::silence, .bytesTaken = 100'000},
        {.then = ScriptedNode::silence},
        {.pieces = {"HTTP/1.1 200\r\n\r\nabc"}, .then = ScriptedNode::silence},
    };
    for (const ScriptedNode& node : cases) {
        for (const bool isPaced : {false, true}) {
            dialer.queue(node);
            const TaskHandle<Response> sending =
                loop.start(put(file, 0, 300'000, isPaced ? &limiter : nullptr));
            loop.settle();
            EXPECT_FALSE(sending.done());
            sending.cancel();
            loop.settle();
            ASSERT_TRUE(sending.done());
            EXPECT_THROW(sending.result(), CancellationError);
            EXPECT_EQ(dialer.open, 0);
        }
    }
}

}  // namespace
}  // namespace vark
