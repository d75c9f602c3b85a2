#include <gmock/gmock.h>

#include "Tests/Support/NodeWorld.h"

namespace vark::test {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using E = VarkAPIError;

const ScriptedNode silent{.then = ScriptedNode::silence};

/// Calls and chunks in an office with nodes.
class NodeCalls : public NodeWorld {
  public:
    std::filesystem::path file = folder.file("clip.mov", "twelve bytes");
    std::vector<std::int64_t> told;

    NodeCalls() {
        session.script = [](const HTTPRequest&) { return answer(200, R"({"path":"internet"})"); };
    }
    Task<std::string> call() { return api.createFolder("a"); }
    Task<void> callAlone() { co_await call(); }
    Task<void> chunk() {
        return api.putChunk("u1", 5, file, 0, 12, nullptr,
                            [this](std::int64_t sent) { told.push_back(sent); });
    }
    Task<void> download() { co_await api.download(7, folder / "item")->value(); }
};

TEST_F(NodeCalls, ANodeProvesOnceThatItSpeaksTheAPIAndThenTakesTheCalls) {
    dialer.queue(nodeAnswer(200, "{}"));
    for (const std::string path : {"b", "c"}) {
        dialer.queue(nodeAnswer(200, R"({"path":")" + path + R"("})"));
        EXPECT_EQ(loop.run(call()), path);
    }
    EXPECT_THAT(dialer.received.at(0),
                StartsWith("GET /portal/api/whoami HTTP/1.1\r\nHost: api.vark.example\r\n"));
    EXPECT_THAT(dialer.received.at(1), StartsWith("POST /api/folders HTTP/1.1\r\n"));
    EXPECT_THAT(dialer.received, testing::Each(HasSubstr("\r\nAuthorization: Bearer t0ken\r\n")));
    EXPECT_THAT(dialled(), ElementsAre(apiNode, apiNode, apiNode));

    EXPECT_THAT(session.requests, IsEmpty());
}

TEST_F(NodeCalls, OnlyAnAnswerOfTheAPIIsAProof) {
    struct Case {
        std::string name;
        ScriptedNode probe;
        bool isProof = false;
    };
    const Case cases[] = {
        {"ok", nodeAnswer(200, "{}"), true},
        {"stale-token", nodeAnswer(401, R"({"error":"Gone"})"), true},
        {"no-object", nodeAnswer(200, "[]")},
        {"web-page", nodeAnswer(200, "<html>")},
        {"other-status", nodeAnswer(404, "{}")},
        {"no-answer", {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string host = c.name + ".vark.example";
        lan.update({{"A", host, "10.0.0.1", 8443, now, true}});
        dialer.queue(c.probe);
        if (c.isProof) dialer.queue(nodeAnswer(200, R"({"path":"node"})"));
        EXPECT_EQ(loop.run(call()), c.isProof ? "node" : "internet");
        EXPECT_EQ(lan.isAPIVerified(host), c.isProof);
        EXPECT_EQ(isBad(host), !c.isProof);
    }
}

/// Anybody in the office may announce a node, and have a good certificate for a name of his own.
TEST_F(NodeCalls, OnlyANodeThatTheVarkStandsForIsAskedAnything) {
    const std::string stranger = "node.stranger.example";
    lan.setAPIVerified(stranger);
    lan.setAPIVerified(apiNode);
    lan.add({"0", stranger, "10.6.6.6", 8443, now, true});
    dialer.queue(nodeAnswer(200, "{}"));
    loop.run(call());
    EXPECT_THAT(dialled(), ElementsAre(apiNode));

    // Alone it gets nothing: no call, no chunk, no download, no proof.
    lan.remove("A");
    api.rememberChunkBase("plain", "http://" + stranger + "/u");
    loop.run(call());
    loop.run(chunk());
    loop.run(download());
    EXPECT_THAT(dialled(), ElementsAre(apiNode));
    EXPECT_EQ(session.requests.size(), 3U);

    // One that the vark sends us to is the vark's.
    session.queue(200, R"({"upload_id":"u2","chunk_size":8,"chunk_url":"https://Node.Stranger.example/u"})");
    loop.run(api.begin("a", 1, "ab", 0, false));
    dialer.queue(nodeAnswer(200, "{}"));
    loop.run(call());
    EXPECT_THAT(dialled(), ElementsAre(apiNode, stranger));
}

TEST_F(NodeCalls, WhoComesWhileANodeProvesItselfDoesNotWait) {
    dialer.queue(silent);
    const TaskHandle<std::string> first = loop.start(call());
    loop.settle();
    EXPECT_EQ(loop.run(call()), "internet");
    EXPECT_THAT(dialled(), ElementsAre(apiNode));

    first.cancel();
    loop.settle();
    EXPECT_THROW(first.result(), CancellationError);
    EXPECT_FALSE(isBad(apiNode)) << "nothing was wrong with it";
    // The next one asks for the proof again.
    dialer.queue(nodeAnswer(200, "{}"));
    dialer.queue(nodeAnswer(200, R"({"path":"node"})"));
    EXPECT_EQ(loop.run(call()), "node");
}

TEST_F(NodeCalls, WhatANodeSaysIsWhatTheVarkSays) {
    lan.setAPIVerified(apiNode);
    dialer.queue(nodeAnswer(401, R"({"error":"Gone","sign_out":true})"));
    EXPECT_EQ(failureOf(call()), E::unauthorized("Gone", "VARK-410"));
    dialer.queue(nodeAnswer(400, R"({"error":"Not here"})"));
    EXPECT_EQ(failureOf(chunk()), E::wrongChunkRoute("Not here"));
    api.rememberChunkBase("u1", "https://bytes.example/u");
    dialer.queue(nodeAnswer(409));
    EXPECT_EQ(failureOf(chunk()), E::uploadGone());
    EXPECT_THAT(session.requests, IsEmpty());
    EXPECT_FALSE(isBad(apiNode) || isBad(bytesNode));
}

TEST_F(NodeCalls, WhatFailsOnANodeGoesOverTheInternetAndTheCallerSeesNothingOfIt) {
    lan.setAPIVerified(apiNode);
    for (const NodeFailure& one : nodeFailures()) {
        for (const std::string target : {"/api/folders", "/portal/api/upload/u1/5"}) {
            SCOPED_TRACE(target + ", " + one.name);
            now = now + 61;
            dialer.queue(one.node);
            loop.run(target == "/api/folders" ? callAlone() : chunk());
            EXPECT_TRUE(isBad(apiNode));
            EXPECT_EQ(session.requests.back().url.requestTarget(), target);
            EXPECT_EQ(headerOf(session.requests.back(), "Authorization"), "Bearer t0ken");
            EXPECT_EQ(dialer.open, 0);
        }
    }
}

TEST_F(NodeCalls, ANodeThatFallsSilentIsGivenUp) {
    struct Case {
        const char* name;
        Task<void> transfer;
        seconds limit;
    };
    Case cases[] = {
        {"proof", callAlone(), seconds(10)},
        {"call", callAlone(), seconds(60)},
        {"file", download(), seconds(60)},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.name);
        now = now + 61;
        dialer.queue(silent);
        const TaskHandle<void> transfer = loop.start(std::move(c.transfer));
        loop.advance(c.limit - seconds(1));
        EXPECT_FALSE(transfer.done());
        loop.advance(seconds(1));
        ASSERT_TRUE(transfer.done());
        EXPECT_NO_THROW(transfer.result());
        EXPECT_TRUE(isBad(apiNode));
        EXPECT_EQ(dialer.open, 0);
        lan.setAPIVerified(apiNode);
    }
}

TEST_F(NodeCalls, AChunkTakesTheTokenOnlyToANodeThatTakesThePlaceOfTheApplication) {
    lan.setAPIVerified(apiNode);
    dialer.queue(nodeAnswer(200));
    loop.run(chunk());
    EXPECT_THAT(dialer.received[0],
                StartsWith("PUT /portal/api/upload/u1/5 HTTP/1.1\r\nHost: api.vark.example\r\n"));
    EXPECT_THAT(dialer.received[0], testing::EndsWith("Authorization: Bearer t0ken\r\n\r\ntwelve bytes"));

    api.rememberChunkBase("u1", "https://BYTES.example/u/abc");
    dialer.queue(nodeAnswer(200));
    loop.run(chunk());
    EXPECT_THAT(dialer.received[1], StartsWith("PUT /u/abc/5 HTTP/1.1\r\nHost: bytes.example\r\n"));
    EXPECT_FALSE(tokenWentTo(1));

    // It has gone to its end when the node breaks off; it begins again at nought, and not on the other node.
    told.clear();
    dialer.queue({.then = ScriptedNode::breaking});
    loop.run(chunk());
    EXPECT_THAT(told, ElementsAre(12, 0, 12));
    EXPECT_EQ(session.uploads.back(), "twelve bytes");
    EXPECT_TRUE(isBad(bytesNode));
    api.rememberChunkBase("u1", "https://elsewhere.example/u/abc");
    loop.run(chunk());
    EXPECT_THAT(dialled(), ElementsAre(apiNode, bytesNode, bytesNode));
    for (const HTTPRequest& request : session.requests)
        EXPECT_EQ(headerOf(request, "Authorization"), "");
}

TEST_F(NodeCalls, AChunkThatEndsByItselfCostsTheNodeNothing) {
    lan.setAPIVerified(apiNode);
    dialer.queue({.then = ScriptedNode::silence, .bytesTaken = 200});
    const TaskHandle<void> sending = loop.start(chunk());
    loop.advance(seconds(45));
    EXPECT_FALSE(sending.done());
    // A second more when the watch began to look before the bytes had gone.
    loop.advance(seconds(2));
    ASSERT_TRUE(sending.done());
    EXPECT_EQ(failureOf(sending.value()),
              E::transport("The vark stopped taking this piece; sending it again."));

    dialer.queue({.hangsAtDialling = true});
    const TaskHandle<void> cancelled = loop.start(chunk());
    loop.settle();
    cancelled.cancel();
    loop.settle();
    EXPECT_THROW(cancelled.result(), CancellationError);
    EXPECT_FALSE(isBad(apiNode));
    EXPECT_THAT(session.requests, IsEmpty());
}

}  // namespace
}  // namespace vark::test
