#include <gmock/gmock.h>

#include "Tests/Support/NodeWorld.h"
#include "VarkCore/API/ContentSink.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::test {
namespace {

using E = VarkAPIError;

ScriptedNode movedTo(const std::string& location, int status = 307) {
    return nodeAnswer(status, "", {{"Location", location}});
}

const std::string nodeURL = "https://bytes.example/d/7?k=1";
const std::string otherURL = "https://elsewhere.example/d/7?k=1";
const ScriptedNode toNode = movedTo(nodeURL);
const ScriptedNode toOther = movedTo(otherURL);
const ScriptedNode dead;
const ScriptedAnswer sentToNode = redirect(302, nodeURL, "moved");
const ScriptedAnswer sentAway = redirect(307, otherURL);

/// What a download meets.
struct Road {
    const char* name;
    /// Whether there is a node that has proved that it speaks the API.
    bool isProven;
    std::vector<ScriptedNode> nodes;
    std::vector<ScriptedAnswer> answers;
    /// The node that has lost its good name by it.
    std::string bad = "";
    std::optional<E> error = std::nullopt;
};

class Download : public NodeWorld {
  public:
    std::filesystem::path to = folder.file("item.mov", "what stood there");

    Download() { lan.setAPIVerified(apiNode); }
    void lay(const Road& road) {
        now = now + 61;
        lan.update(
            {{"A", apiNode, "10.0.0.1", 8443, now, road.isProven}, {"B", bytesNode, "10.0.0.2", 8443, now}});
        dialer.targets.clear();
        dialer.received.clear();
        session.requests.clear();
        std::ranges::for_each(road.nodes, [this](const ScriptedNode& node) { dialer.queue(node); });
        std::ranges::for_each(road.answers, [this](const ScriptedAnswer& next) { session.queue(next); });
        folder.file("item.mov", "what stood there");
    }
    std::shared_ptr<VarkDownload> start() { return api.download(7, to); }
    std::string badNode() const { return isBad(apiNode) ? apiNode : isBad(bytesNode) ? bytesNode : ""; }
    /// Nothing lies beside the destination.
    bool isTidy() const { return filesInFolder() == std::vector<std::string>{"item.mov"}; }
};

TEST_F(Download, TakesEveryRoadToItsEndAndTheTokenOnlyToTheVark) {
    const ScriptedNode whole = nodeAnswer(200, "whole");
    const ScriptedAnswer over = answer(200, "whole");
    // clang-format off
    std::vector<Road> roads{
        {"the internet", false, {}, {over}},
        {"a redirect to a node", false, {whole}, {sentToNode}},
        {"a redirect elsewhere", false, {}, {sentAway, over}},
        {"a refusal on the node of a redirect", false, {nodeAnswer(500)}, {sentToNode, sentToNode, over}, bytesNode},
        {"a node that knows another", true, {toNode, whole}, {}},
        {"a node that knows elsewhere", true, {toOther}, {over}},
        {"no redirect", true, {nodeAnswer(200, "bytes")}, {over}, apiNode},
        {"no such redirect", true, {movedTo(nodeURL, 300)}, {over}, apiNode},
        {"a redirect to nowhere", true, {nodeAnswer(302)}, {over}, apiNode},
        {"a refusal of the bytes", true, {toNode, nodeAnswer(404, "none")}, {over}, apiNode},
        {"a refusal elsewhere", true, {toOther}, {answer(403), over}, apiNode},
        {"no answer elsewhere", true, {toOther}, {failure(HTTPError::cannotFindHost), over}, apiNode},
        {"no other node after one has failed", true, {dead}, {sentToNode, over}, apiNode},
        {"the last word of the internet", true, {dead}, {answer(404)}, apiNode, E::server(404)},
        {"gone", false, {}, {answer(404, R"({"error":"Gone"})")}, "", E::server(404, "Gone")},
        {"signed out", false, {}, {answer(401, R"({"sign_out":true})")}, "", E::unauthorized({}, "VARK-410")},
        {"no body", false, {}, {answer(304)}, "", E::server(304)},
        {"lost", false, {}, {failure(HTTPError::connectionLost)}, "", E::transport("The connection dropped.")},
    };
    // clang-format on
    for (const NodeFailure& one : nodeFailures()) {
        roads.push_back({one.name, true, {one.node}, {over}, apiNode});
        roads.push_back({one.name, true, {toNode, one.node}, {over}, apiNode});
        roads.push_back({one.name, false, {one.node}, {sentToNode, sentToNode, over}, bytesNode});
    }
    for (const Road& road : roads) {
        SCOPED_TRACE(road.name);
        lay(road);
        const std::shared_ptr<VarkDownload> download = start();
        EXPECT_EQ(failureOf(download->value()), road.error);
        EXPECT_EQ(readWholeFile(to), road.error ? "what stood there" : "whole");
        EXPECT_TRUE(isTidy());
        if (!road.error) EXPECT_EQ(download->progress()->fractionCompleted(), 1);
        EXPECT_EQ(badNode(), road.bad);

        EXPECT_EQ(dialer.targets.size(), road.nodes.size());
        EXPECT_EQ(session.requests.size(), road.answers.size());
        for (const std::string& request : dialer.received)
            EXPECT_EQ(request.contains("t0ken"), request.contains("\r\nHost: " + apiNode + "\r\n"));
        for (const HTTPRequest& request : session.requests) {
            const bool isVark = request.url.text() == "https://vark.example/portal/api/file/7";
            EXPECT_EQ(headerOf(request, "Authorization"), isVark ? "Bearer t0ken" : "");
        }
    }
}

TEST_F(Download, TakesItsPlaceWhereItCan) {
    session.script = [](const HTTPRequest&) { return answer(200, "bytes"); };
    std::filesystem::create_directory(folder / "empty");
    for (const char* place : {"new/folder/item.mov", "empty"}) {
        to = folder / place;
        loop.run(start()->value());
        EXPECT_EQ(readWholeFile(to), "bytes");
    }
    // A large file must not be cut off by the limit of a call.
    EXPECT_GE(session.requests.back().idleLimit, std::chrono::days(1));

    to = folder / "new";
    EXPECT_TRUE(failureOf(start()->value())) << "a folder is in the way";
    EXPECT_TRUE(std::filesystem::exists(folder / "new/folder/item.mov"));
}

/// Wants what stands behind its bytes.
struct HalfAnItem final : ContentSink {
    std::string bytes = "abc";

    std::int64_t next() const override { return std::ssize(bytes); }
    void take(std::int64_t at, std::string_view piece) override {
        bytes.resize(static_cast<std::size_t>(at));
        bytes += piece;
    }
};

ScriptedAnswer part(const std::string& range, const std::string& bytes = "def") {
    return {.response = {206, {{"content-range", range}}, bytes}};
}

TEST_F(Download, TheRestOfAnItemIsTakenOnlyFromWhereItBelongs) {
    struct Case {
        ScriptedAnswer answer;
        std::string bytes;
        std::optional<E> error = std::nullopt;
    };
    const E otherPart = E::badResponse("another part of the file than the one asked for");
    const Case cases[] = {
        {part("bytes 3-5/6"), "abcdef"}, {answer(200, "ABCDEF"), "ABCDEF"},
        {answer(200, ""), ""},           {part("bytes 0-2/6"), "abc", otherPart},
        {part(""), "abc", otherPart},    {answer(416, "{}"), "abc", E::server(416)},
    };
    for (const Case& c : cases) {
        HalfAnItem item;
        session.queue(c.answer);
        EXPECT_EQ(failureOf(api.fetch(7, item)), c.error);
        EXPECT_EQ(item.bytes, c.bytes);
        EXPECT_EQ(headerOf(session.requests.back(), "Range"), "bytes=3-");
    }
}

TEST_F(Download, WhatANodeBroughtBeforeItFailedIsGoneOnWithOverTheInternet) {
    const std::string begun = "HTTP/1.1 206 Part\r\nContent-Length: 3\r\nContent-Range: bytes 3-5/6\r\n\r\nd";
    lay({"", true, {toNode, {.pieces = {begun}}}, {part("bytes 4-5/6", "ef")}});
    HalfAnItem item;
    loop.run(api.fetch(7, item));
    EXPECT_EQ(item.bytes, "abcdef");
    EXPECT_THAT(dialer.received.back(), testing::HasSubstr("\r\nRange: bytes=3-\r\n"));
    EXPECT_EQ(headerOf(session.requests.back(), "Range"), "bytes=4-");
}

TEST_F(Download, ACancelledOneLeavesNothingBehindOnAnyRoad) {
    const ScriptedNode silent{.then = ScriptedNode::silence};
    const ScriptedAnswer half{.response = {200, {}, "half"}, .hangs = true};
    const Road roads[] = {
        {"session", false, {}, {half}},
        {"node", true, {toNode, silent}, {}},
        {"after a node", true, {dead}, {half}, apiNode},
    };
    for (const Road& road : roads) {
        SCOPED_TRACE(road.name);
        lay(road);
        const std::shared_ptr<VarkDownload> download = start();
        const TaskHandle<void> waiting = loop.start(download->value());
        loop.settle();
        EXPECT_FALSE(waiting.done());
        download->cancel();
        loop.settle();
        EXPECT_THROW(waiting.result(), CancellationError);
        EXPECT_EQ(readWholeFile(to), "what stood there");
        EXPECT_TRUE(isTidy());
        EXPECT_EQ(badNode(), road.bad);
        EXPECT_EQ(dialer.open, 0);
    }
}

}  // namespace
}  // namespace vark::test
