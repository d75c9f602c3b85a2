#include <gmock/gmock.h>

#include "Tests/Support/NodeWorld.h"

namespace vark {
namespace {

using test::answer;
using test::headerOf;
using test::nodeAnswer;
using test::nodeFailures;
using test::nodeRefusal;
using test::NodeWorld;
using test::ScriptedNode;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

using E = VarkAPIError;

/// Calls and chunks in an office with nodes.
class NodeCalls : public NodeWorld {
  public:
    std::filesystem::path file = folder.file("clip.mov", "twelve bytes");
    std::vector<std::int64_t> told;

    Task<void> call() { co_await api.createFolder("a"); }
    Task<void> chunk() {
        return api.putChunk("u1", 5, file, 0, 12, nullptr,
                            [this](std::int64_t sent) { told.push_back(sent); });
    }
    Task<std::string> folderOf() { return api.createFolder("a"); }
};

TEST_F(NodeCalls, ANodeProvesOnceThatItSpeaksTheAPIAndThenTakesTheCalls) {
    dialer.queue(nodeAnswer(200, "{}"));
    dialer.queue(nodeAnswer(200, R"({"path":"b"})"));
    EXPECT_EQ(loop.run(folderOf()), "b");
    dialer.queue(nodeAnswer(200, R"({"path":"c"})"));
    EXPECT_EQ(loop.run(folderOf()), "c");

    const std::string common =
        " HTTP/1.1\r\nHost: api.vark.example\r\nConnection: close\r\nUser-Agent: Vark/1.0 (macOS; LAN)\r\n"
        "Accept: application/json\r\nAuthorization: Bearer t0ken\r\n";
    const std::string call = "POST /api/folders" + common +
                             "Content-Type: application/json\r\nContent-Length: 12\r\n\r\n" +
                             R"({"path":"a"})";
    EXPECT_THAT(dialer.received, ElementsAre("GET /portal/api/whoami" + common + "\r\n", call, call));
    EXPECT_THAT(session.requests, IsEmpty());
    EXPECT_EQ(dialer.targets.front().ip, "10.0.0.1");
}

TEST_F(NodeCalls, OnlyAnAnswerOfTheAPIIsAProof) {
    struct Case {
        const char* name;
        ScriptedNode probe;
        bool isProof;
    };
    std::vector<Case> cases{
        {"ok", nodeAnswer(200, "{}"), true},
        {"a stale token", nodeAnswer(401, R"({"error":"Gone"})"), true},
        {"no object", nodeAnswer(200, "[]"), false},
        {"a web page", nodeAnswer(200, "<html>"), false},
        {"no body", nodeAnswer(401), false},
        {"another status", nodeAnswer(404, "{}"), false},
    };
    for (const test::NodeFailure& failure : nodeFailures())
        cases.push_back({failure.name, failure.node, false});
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        now = now + 61;
        const std::string host = std::string(c.name) + ".vark.example";
        lan.update({{"A", host, "10.0.0.1", 8443, now, true}});
        dialer.targets.clear();
        session.requests.clear();
        dialer.queue(c.probe);
        if (c.isProof) dialer.queue(nodeAnswer(200, "{}"));
        session.script = [](const HTTPRequest&) { return answer(200, "{}"); };
        loop.run(folderOf());
        EXPECT_EQ(dialer.targets.size(), c.isProof ? 2U : 1U);
        EXPECT_EQ(session.requests.size(), c.isProof ? 0U : 1U);
        EXPECT_EQ(lan.isAPIVerified(host), c.isProof);
        EXPECT_EQ(isBad(host), !c.isProof);
    }
}

/// Anybody in the office may announce a node, and have a good certificate for a name of his own.
TEST_F(NodeCalls, OnlyANodeThatTheVarkStandsForIsAskedAnything) {
    const std::string stranger = "node.stranger.example";
    const auto withStranger = [&] {
        lan.update(
            {{"0", stranger, "10.6.6.6", 8443, now, true}, {"A", apiNode, "10.0.0.1", 8443, now, true}});
    };
    lan.setAPIVerified(stranger);
    lan.setAPIVerified(apiNode);
    session.script = [](const HTTPRequest&) { return answer(200, "{}"); };
    withStranger();
    dialer.queue(nodeAnswer(200, "{}"));
    loop.run(call());
    EXPECT_THAT(dialled(), ElementsAre(apiNode));

    // Alone it gets nothing: no call, no chunk, no download, no proof.
    lan.remove("A");
    api.rememberChunkBase("plain", "http://" + stranger + "/u");
    loop.run(call());
    loop.run(chunk());
    loop.run(api.download(7, folder / "item")->value());
    EXPECT_THAT(dialled(), ElementsAre(apiNode));
    EXPECT_EQ(session.requests.size(), 3U);

    // One that the vark sends us to is the vark's.
    session.queue(200, R"({"upload_id":"u2","chunk_size":8,"chunk_url":"https://Node.Stranger.example/u"})");
    loop.run(api.begin("a", 1, "ab", 0, false));
    dialer.queue(nodeAnswer(200, "{}"));
    loop.run(call());
    EXPECT_THAT(dialled(), ElementsAre(apiNode, stranger));
}

TEST_F(NodeCalls, ACallWithoutATokenCarriesNoneAndTheProofOnlyIfThereIsOne) {
    token = std::nullopt;
    dialer.queue(nodeAnswer(401, "{}"));
    dialer.queue(nodeAnswer(200, R"({"token":"n3w","client_name":"Acme","level":1})"));
    loop.run(api.claim("123456", "Studio"));
    EXPECT_THAT(dialer.received, ElementsAre(StartsWith("GET /portal/api/whoami "), StartsWith("POST ")));
    for (const std::string& request : dialer.received)
        EXPECT_THAT(request, testing::Not(HasSubstr("Authorization")));
}

TEST_F(NodeCalls, WhoComesWhileANodeProvesItselfDoesNotWait) {
    dialer.queue({.then = ScriptedNode::silence});
    session.queue(200, R"({"path":"b"})");
    const TaskHandle<std::string> first = loop.start(folderOf());
    loop.settle();
    EXPECT_EQ(loop.run(folderOf()), "b");
    EXPECT_THAT(dialled(), ElementsAre(apiNode));

    first.cancel();
    loop.settle();
    EXPECT_THROW(first.result(), CancellationError);
    EXPECT_FALSE(isBad(apiNode));
    // The next one asks for the proof again.
    dialer.queue(nodeAnswer(200, "{}"));
    dialer.queue(nodeAnswer(200, R"({"path":"c"})"));
    EXPECT_EQ(loop.run(folderOf()), "c");
}

TEST_F(NodeCalls, ARefusedTokenIsRefusedThroughANodeToo) {
    lan.setAPIVerified(apiNode);
    dialer.queue(nodeAnswer(401, R"({"error":"Gone","sign_out":true})"));
    EXPECT_EQ(failureOf(folderOf()), E::unauthorized("Gone", "VARK-410"));
    EXPECT_FALSE(isBad(apiNode));
    EXPECT_THAT(session.requests, IsEmpty());
}

/// Each way of a node to fail, for each thing that may go through one.
TEST_F(NodeCalls, WhatFailsOnANodeGoesOverTheInternetAndTheCallerSeesNothingOfIt) {
    struct Transfer {
        const char* name;
        std::function<Task<void>()> start;
        std::string target;
    };
    const std::vector<Transfer> transfers{
        {"call", [this] { return call(); }, "/api/folders"},
        {"chunk", [this] { return chunk(); }, "/portal/api/upload/u1/5"},
        {"download", [this] { return api.download(7, folder / "item")->value(); }, "/portal/api/file/7"},
    };
    lan.setAPIVerified(apiNode);
    session.script = [](const HTTPRequest&) { return answer(200, "{}"); };
    for (const Transfer& transfer : transfers) {
        for (const test::NodeFailure& failure : nodeFailures()) {
            SCOPED_TRACE(std::string(transfer.name) + ", " + failure.name);
            now = now + 61;
            session.requests.clear();
            dialer.queue(failure.node);
            loop.run(transfer.start());
            EXPECT_TRUE(isBad(apiNode));
            EXPECT_TRUE(lan.isAPIVerified(apiNode));
            ASSERT_EQ(session.requests.size(), 1U);
            EXPECT_EQ(session.requests[0].url.requestTarget(), transfer.target);
            EXPECT_EQ(headerOf(session.requests[0], "Authorization"), "Bearer t0ken");
            EXPECT_EQ(dialer.open, 0);

            // Until it has cooled off nobody asks it again.
            const std::size_t dials = dialer.targets.size();
            loop.run(transfer.start());
            EXPECT_EQ(dialer.targets.size(), dials);
        }
    }
}

TEST_F(NodeCalls, ANodeThatFallsSilentIsGivenUp) {
    session.script = [](const HTTPRequest&) { return answer(200, "{}"); };
    const ScriptedNode silent{.then = ScriptedNode::silence};
    const std::string redirect = "HTTP/1.1 302 Found\r\nLocation: https://bytes.example/f/1\r\n\r\n";
    const std::string begun = "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello";
    struct Case {
        const char* name;
        bool isProven;
        std::function<Task<void>()> start;
        std::vector<ScriptedNode> nodes;
        std::chrono::seconds limit;
    };
    const auto download = [this] { return api.download(7, folder / "item")->value(); };
    const Case cases[] = {
        {"proof", false, [this] { return call(); }, {silent}, std::chrono::seconds(10)},
        {"call", true, [this] { return call(); }, {silent}, std::chrono::seconds(60)},
        {"redirect", true, download, {silent}, std::chrono::seconds(60)},
        {"file",
         true,
         download,
         {{.pieces = {redirect}}, {.pieces = {begun}, .then = ScriptedNode::silence}},
         std::chrono::seconds(60)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        now = now + 61;
        if (c.isProven) lan.setAPIVerified(apiNode);
        for (const ScriptedNode& node : c.nodes)
            dialer.queue(node);
        const TaskHandle<void> transfer = loop.start(c.start());
        loop.advance(c.limit - std::chrono::seconds(1));
        EXPECT_FALSE(transfer.done());
        loop.advance(std::chrono::seconds(1));
        ASSERT_TRUE(transfer.done());
        EXPECT_NO_THROW(transfer.result());
        EXPECT_TRUE(isBad(apiNode));
        EXPECT_EQ(dialer.open, 0);
    }
}

TEST_F(NodeCalls, ACancelledTransferIsCancelledAndTheNodeNotBadForIt) {
    lan.setAPIVerified(apiNode);
    const std::vector<std::pair<const char*, std::function<Task<void>()>>> transfers{
        {"call", [this] { return call(); }},
        {"chunk", [this] { return chunk(); }},
        {"download", [this] { return api.download(7, folder / "item")->value(); }},
    };
    for (const auto& [name, start] : transfers) {
        for (const bool isConnected : {false, true}) {
            SCOPED_TRACE(name);
            dialer.queue({.then = ScriptedNode::silence, .hangsAtDialling = !isConnected});
            const TaskHandle<void> transfer = loop.start(start());
            loop.settle();
            transfer.cancel();
            loop.settle();
            EXPECT_THROW(transfer.result(), CancellationError);
            EXPECT_FALSE(isBad(apiNode));
            EXPECT_EQ(dialer.open, 0);
        }
    }
    EXPECT_THAT(session.requests, IsEmpty());
}

TEST_F(NodeCalls, AChunkTakesTheTokenOnlyToANodeThatTakesThePlaceOfTheApplication) {
    lan.setAPIVerified(apiNode);
    dialer.queue(nodeAnswer(200));
    loop.run(chunk());
    EXPECT_EQ(dialer.received[0],
              "PUT /portal/api/upload/u1/5 HTTP/1.1\r\nHost: api.vark.example\r\nConnection: close\r\n"
              "User-Agent: Vark/1.0 (macOS; LAN)\r\nContent-Type: application/octet-stream\r\n"
              "Content-Length: 12\r\nAuthorization: Bearer t0ken\r\n\r\ntwelve bytes");
    EXPECT_THAT(told, ElementsAre(12));

    api.rememberChunkBase("u1", "https://BYTES.example/u/abc");
    dialer.queue(nodeAnswer(200));
    loop.run(chunk());
    EXPECT_THAT(dialer.received[1], StartsWith("PUT /u/abc/5 HTTP/1.1\r\nHost: bytes.example\r\n"));
    EXPECT_FALSE(tokenWentTo(1));

    // Neither a base that is no node, nor one whose node has failed, goes through the one with the API.
    session.script = [](const HTTPRequest&) { return answer(200); };
    api.rememberChunkBase("u1", "https://elsewhere.example/u/abc");
    loop.run(chunk());
    lan.markBad(bytesNode, now);
    api.rememberChunkBase("u1", "https://bytes.example/u/abc");
    loop.run(chunk());
    EXPECT_EQ(dialer.targets.size(), 2U);
    for (const HTTPRequest& request : session.requests)
        EXPECT_EQ(headerOf(request, "Authorization"), "");
}

TEST_F(NodeCalls, AChunkThatFailsOnANodeBeginsAgainAtNought) {
    api.rememberChunkBase("u1", "https://bytes.example/u");
    // It has gone to its end when the node breaks off.
    dialer.queue({.then = ScriptedNode::breaking});
    session.queue(200);
    loop.run(chunk());
    EXPECT_THAT(told, ElementsAre(12, 0, 12));
    EXPECT_EQ(session.requests[0].url.text(), "https://bytes.example/u/5");
    EXPECT_EQ(headerOf(session.requests[0], "Authorization"), "");
    EXPECT_EQ(session.uploads[0], "twelve bytes");
    EXPECT_TRUE(isBad(bytesNode));
    EXPECT_FALSE(isBad(apiNode));
}

TEST_F(NodeCalls, AChunkThatStandsStillOnANodeFailsAndTheNodeStaysGood) {
    struct Case {
        ScriptedNode node;
        std::chrono::seconds patience;
        const char* sentence;
    };
    const std::vector<Case> cases{
        {{.then = ScriptedNode::silence, .bytesTaken = 200},
         std::chrono::seconds(45),
         "The vark stopped taking this piece; sending it again."},
        {{.then = ScriptedNode::silence},
         std::chrono::seconds(180),
         "The vark took every byte and did not answer; sending it again."},
    };
    lan.setAPIVerified(apiNode);
    for (const Case& c : cases) {
        dialer.queue(c.node);
        const TaskHandle<void> sending = loop.start(chunk());
        loop.advance(c.patience);
        EXPECT_FALSE(sending.done());
        // A second more when the watch began to look before the bytes had gone.
        loop.advance(std::chrono::seconds(2));
        ASSERT_TRUE(sending.done());
        EXPECT_EQ(failureOf(sending.value()), E::transport(c.sentence));
        EXPECT_FALSE(isBad(apiNode));
    }
    EXPECT_THAT(session.requests, IsEmpty());
}

TEST_F(NodeCalls, WhatANodeSaysOfAChunkIsWhatTheVarkSays) {
    struct Case {
        int status;
        std::string body;
        std::optional<E> viaApp;
        std::optional<E> toBase;
    };
    const std::vector<Case> cases{
        {201, "", std::nullopt, std::nullopt},
        {400, R"({"error":"Not here"})", E::wrongChunkRoute("Not here"), E::server(400, "Not here")},
        {409, "", E::uploadGone(), E::uploadGone()},
        {500, "", E::server(500), E::server(500)},
    };
    lan.setAPIVerified(apiNode);
    for (const Case& c : cases) {
        api.rememberChunkBase("u1", std::nullopt);
        dialer.queue(nodeAnswer(c.status, c.body));
        EXPECT_EQ(failureOf(chunk()), c.viaApp) << c.status;
        api.rememberChunkBase("u1", "https://bytes.example/u");
        dialer.queue(nodeAnswer(c.status, c.body));
        EXPECT_EQ(failureOf(chunk()), c.toBase) << c.status;
    }
    EXPECT_THAT(session.requests, IsEmpty());
    EXPECT_FALSE(isBad(apiNode) || isBad(bytesNode));
}

TEST_F(NodeCalls, AFileThatIsNotWhatItWasIsToldAndCostsTheNodeNothingThatItDidNotSee) {
    lan.setAPIVerified(apiNode);
    file = folder / "gone.mov";
    EXPECT_THROW(loop.run(chunk()), FileError);
    EXPECT_FALSE(isBad(apiNode));
    EXPECT_THAT(session.requests, IsEmpty());

    file = folder.file("short.mov", "short");
    dialer.queue({});
    session.queue(200);
    EXPECT_EQ(failureOf(chunk()), E::transport("short.mov is shorter than it was. Was it changed?"));
    EXPECT_TRUE(isBad(apiNode));
}

TEST_F(NodeCalls, WithoutATokenNothingIsAskedOfANode) {
    lan.setAPIVerified(apiNode);
    token = std::nullopt;
    api.rememberChunkBase("u1", "https://bytes.example/u");
    EXPECT_EQ(failureOf(chunk()), E::notConnected());
    EXPECT_EQ(failureOf(folderOf()), E::notConnected());
    EXPECT_THAT(dialer.targets, IsEmpty());
}

}  // namespace
}  // namespace vark
