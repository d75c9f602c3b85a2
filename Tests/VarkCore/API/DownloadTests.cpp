#include <gmock/gmock.h>
#include <sys/stat.h>

#include "Tests/Support/NodeWorld.h"
#include "VarkCore/API/ContentSink.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

using test::answer;
using test::failure;
using test::hanging;
using test::headerOf;
using test::nodeAnswer;
using test::nodeFailures;
using test::NodeWorld;
using test::redirect;
using test::ScriptedNode;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

using E = VarkAPIError;

const std::string nodeURL = "https://bytes.example/d/7?k=1";
const std::string otherURL = "https://elsewhere.example/d/7?k=1";

class Download : public NodeWorld {
  public:
    std::filesystem::path to = folder.file("item.mov", "what stood there");

    std::shared_ptr<VarkDownload> start() { return api.download(7, to); }
    std::optional<E> failureOfDownload() { return failureOf(start()->value()); }
    std::string content() const { return readWholeFile(to); }
    /// What lies beside it for its owner alone, under a name of ours.
    static std::vector<std::filesystem::path> othersBeside(const std::filesystem::path& place) {
        std::vector<std::filesystem::path> others;
        for (const auto& entry : std::filesystem::directory_iterator(place.parent_path())) {
            struct stat values{};
            if (!entry.path().filename().native().starts_with(".vark-")) continue;
            if (stat(entry.path().c_str(), &values) == 0 && (values.st_mode & 07777) == 0600)
                others.push_back(entry.path());
        }
        return others;
    }
    /// Nothing lies beside the destination.
    bool isTidy() const { return filesInFolder() == std::vector<std::string>{"item.mov"}; }
};

ScriptedNode movedTo(const std::string& location, int status = 307) {
    return nodeAnswer(status, "", {{"Location", location}});
}

TEST_F(Download, WithoutATokenThereIsNone) {
    token = std::nullopt;
    EXPECT_THROW(start(), E);
    EXPECT_THAT(session.requests, IsEmpty());
    EXPECT_THAT(dialer.targets, IsEmpty());
    EXPECT_EQ(content(), "what stood there");
}

TEST_F(Download, ComesBesideItsPlaceAndTakesItWhole) {
    for (const std::string name : {"item.mov", "new/folder/item.mov", "empty folder"}) {
        to = folder / name;
        if (name == "empty folder") std::filesystem::create_directory(to);
        std::vector<std::filesystem::path> beside;
        session.script = [&](const HTTPRequest&) {
            beside = othersBeside(to);
            return answer(200, "bytes");
        };
        const std::shared_ptr<VarkDownload> download = start();
        loop.run(download->value());
        EXPECT_EQ(content(), "bytes");
        ASSERT_EQ(beside.size(), 1U);
        EXPECT_FALSE(std::filesystem::exists(beside[0]));
        EXPECT_EQ(download->progress()->totalUnitCount(), 5);
        EXPECT_EQ(download->progress()->fractionCompleted(), 1);
    }
    const HTTPRequest& request = session.requests.front();
    EXPECT_EQ(request.url.text(), "https://vark.example/portal/api/file/7");
    EXPECT_EQ(headerOf(request, "Authorization"), "Bearer t0ken");
    EXPECT_EQ(request.idleLimit, std::chrono::days(7));
    // Only a call proves a node.
    EXPECT_THAT(dialer.targets, IsEmpty());
}

TEST_F(Download, OneThatFailsOverTheInternetLeavesWhatStoodThere) {
    struct Case {
        test::ScriptedAnswer answer;
        E error;
    };
    const std::vector<Case> cases{
        {answer(404, R"({"error":"Gone"})"), E::server(404, "Gone")},
        {answer(401, R"({"sign_out":true})"), E::unauthorized(std::nullopt, "VARK-410")},
        {answer(500, std::string(2 << 20, 'x')), E::server(500)},
        {answer(304), E::server(304)},
        {failure(HTTPError::connectionLost), E::transport("The connection dropped.")},
        {failure(HTTPError::untrusted, "Not who it says."), E::transport("Not who it says.")},
    };
    for (const Case& c : cases) {
        session.queue(c.answer);
        EXPECT_EQ(failureOfDownload(), c.error);
        EXPECT_EQ(content(), "what stood there");
        EXPECT_TRUE(isTidy());
    }
}

TEST_F(Download, AFileThatCannotBePutInPlaceIsASentence) {
    using testing::HasSubstr;
    session.script = [](const HTTPRequest&) { return answer(200, "bytes"); };
    struct Case {
        std::filesystem::path to;
        std::string words;
    };
    folder.file("full/inside");
    for (const Case& c : {Case{to / "below a file", "Could not make the folder"},
                          Case{folder / "full", "Could not replace"}}) {
        to = c.to;
        const std::optional<E> error = failureOfDownload();
        ASSERT_TRUE(error);
        EXPECT_TRUE(error->isRetryable());
        EXPECT_THAT(error->errorDescription(),
                    StartsWith("Could not put the downloaded file in place: " + c.words));
    }
    EXPECT_THAT(filesInFolder(), testing::UnorderedElementsAre("item.mov", "full"));
}

TEST_F(Download, AVerifiedNodeSaysWhereTheBytesAre) {
    lan.setAPIVerified(apiNode);
    dialer.queue(movedTo(nodeURL));
    dialer.queue(nodeAnswer(200, "from the node"));
    const std::shared_ptr<VarkDownload> download = start();
    loop.run(download->value());
    EXPECT_EQ(content(), "from the node");
    EXPECT_EQ(download->progress()->fractionCompleted(), 1);
    EXPECT_THAT(dialer.received, ElementsAre(StartsWith("GET /portal/api/file/7 HTTP/1.1\r\n"),
                                             StartsWith("GET /d/7?k=1 HTTP/1.1\r\nHost: bytes.example\r\n")));
    EXPECT_TRUE(tokenWentTo(0));
    EXPECT_FALSE(tokenWentTo(1));
    EXPECT_THAT(session.requests, IsEmpty());
}

TEST_F(Download, WhereThereIsNoNodeTheBytesComeFromThereWithoutTheToken) {
    lan.setAPIVerified(apiNode);
    dialer.queue(movedTo(otherURL, 302));
    session.queue(200, "from elsewhere");
    const std::shared_ptr<VarkDownload> download = start();
    loop.run(download->value());
    EXPECT_EQ(content(), "from elsewhere");
    EXPECT_TRUE(isTidy());
    EXPECT_EQ(download->progress()->fractionCompleted(), 1);
    ASSERT_EQ(session.requests.size(), 1U);
    EXPECT_EQ(session.requests[0].url.text(), otherURL);
    EXPECT_THAT(session.requests[0].headers, IsEmpty());
}

TEST_F(Download, WhateverFailsBehindAVerifiedNodeGoesOnOverTheInternet) {
    struct Case {
        const char* name;
        ScriptedNode first;
        std::optional<ScriptedNode> second;
        std::optional<test::ScriptedAnswer> elsewhere;
    };
    std::vector<Case> cases{
        {"no redirect", nodeAnswer(200, "bytes"), {}, {}},
        {"no such redirect", movedTo(nodeURL, 300), {}, {}},
        {"a redirect to nowhere", nodeAnswer(302), {}, {}},
        {"a refusal", nodeAnswer(401), {}, {}},
        {"a refusal of the bytes", movedTo(nodeURL), nodeAnswer(404, "none"), {}},
        {"a refusal elsewhere", movedTo(otherURL), {}, answer(403)},
        {"no answer elsewhere", movedTo(otherURL), {}, failure(HTTPError::cannotFindHost)},
    };
    for (const test::NodeFailure& c : nodeFailures())
        cases.push_back({c.name, movedTo(nodeURL), c.node, {}});
    lan.setAPIVerified(apiNode);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        now = now + 61;
        session.requests.clear();
        dialer.queue(c.first);
        if (c.second) dialer.queue(*c.second);
        if (c.elsewhere) session.queue(*c.elsewhere);
        session.queue(200, "over the internet");
        const std::shared_ptr<VarkDownload> download = start();
        loop.run(download->value());
        EXPECT_EQ(content(), "over the internet");
        EXPECT_TRUE(isTidy());
        EXPECT_TRUE(isBad(apiNode));
        EXPECT_FALSE(isBad(bytesNode));
        EXPECT_EQ(session.requests.back().url.text(), "https://vark.example/portal/api/file/7");
        EXPECT_EQ(download->progress()->totalUnitCount(), 100);
        EXPECT_EQ(download->progress()->completedUnitCount(), 100);
    }
}

TEST_F(Download, ARedirectToANodeIsTakenUpThere) {
    session.queue(redirect(302, nodeURL, "moved"));
    dialer.queue(nodeAnswer(200, "from the node"));
    loop.run(start()->value());
    EXPECT_EQ(content(), "from the node");
    EXPECT_TRUE(isTidy());
    EXPECT_THAT(dialled(), ElementsAre(bytesNode));
    EXPECT_FALSE(tokenWentTo(0));
    EXPECT_EQ(session.requests.size(), 1U);
}

TEST_F(Download, ARedirectToWhereThereIsNoNodeIsFollowed) {
    session.queue(redirect(307, otherURL));
    session.queue(200, "from elsewhere");
    loop.run(start()->value());
    EXPECT_EQ(content(), "from elsewhere");
    EXPECT_THAT(dialer.targets, IsEmpty());
}

TEST_F(Download, WhatFailsOnTheNodeOfARedirectGoesOnOverTheInternet) {
    std::vector<test::NodeFailure> cases = nodeFailures();
    cases.push_back({"a refusal", nodeAnswer(500, "none")});
    for (const test::NodeFailure& c : cases) {
        SCOPED_TRACE(c.name);
        now = now + 61;
        dialer.queue(c.node);
        session.queue(redirect(302, nodeURL));
        session.queue(redirect(302, nodeURL));
        session.queue(200, "over the internet");
        const std::shared_ptr<VarkDownload> download = start();
        loop.run(download->value());
        EXPECT_EQ(content(), "over the internet");
        EXPECT_TRUE(isBad(bytesNode));
        EXPECT_EQ(session.requests.back().url.text(), nodeURL);
        EXPECT_EQ(download->progress()->completedUnitCount(), 100);
    }
}

TEST_F(Download, OnceANodeHasFailedNoOtherIsTried) {
    lan.setAPIVerified(apiNode);
    dialer.queue({});
    session.queue(redirect(302, nodeURL));
    session.queue(200, "over the internet");
    loop.run(start()->value());
    EXPECT_EQ(content(), "over the internet");
    EXPECT_THAT(dialled(), ElementsAre(apiNode));
    EXPECT_FALSE(isBad(bytesNode));
}

TEST_F(Download, TheInternetHasTheLastWord) {
    lan.setAPIVerified(apiNode);
    dialer.queue({});
    session.queue(404, R"({"error":"Gone"})");
    EXPECT_EQ(failureOfDownload(), E::server(404, "Gone"));

    // The device is signed out while the node is asked.
    now = now + 61;
    dialer.script = [this](const DialTarget&) {
        token = std::nullopt;
        return ScriptedNode{};
    };
    EXPECT_EQ(failureOfDownload(), E::transport(E::notConnected().errorDescription()));
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

TEST_F(Download, TheRestOfAnItemIsTakenOnlyFromWhereItBelongs) {
    struct Case {
        test::ScriptedAnswer answer;
        std::optional<E> error;
        std::string bytes;
    };
    const E otherPart = E::badResponse("another part of the file than the one asked for");
    const auto part = [](const std::string& range) {
        test::ScriptedAnswer next = answer(206, "def");
        next.response.headers = {{"content-range", range}};
        return next;
    };
    const std::vector<Case> cases{
        {part("bytes 3-5/6"), {}, "abcdef"},
        {answer(200, "ABCDEF"), {}, "ABCDEF"},
        {answer(200, ""), {}, ""},
        {part("bytes 0-2/6"), otherPart, "abc"},
        {part("bytes 30-32/60"), otherPart, "abc"},
        {part("bytes */6"), otherPart, "abc"},
        {part(""), otherPart, "abc"},
        {answer(416, "{}"), E::server(416), "abc"},
        {answer(404, "gone"), E::server(404), "abc"},
    };
    for (const Case& c : cases) {
        HalfAnItem item;
        session.queue(c.answer);
        EXPECT_EQ(failureOf(api.fetch(7, item)), c.error);
        EXPECT_EQ(item.bytes, c.bytes);
        EXPECT_EQ(headerOf(session.requests.back(), "Range"), "bytes=3-");
        EXPECT_EQ(headerOf(session.requests.back(), "Authorization"), "Bearer t0ken");
    }
}

TEST_F(Download, WhatANodeBroughtBeforeItFailedIsGoneOnWithOverTheInternet) {
    lan.setAPIVerified(apiNode);
    dialer.queue(movedTo(nodeURL));
    dialer.queue(
        {.pieces = {"HTTP/1.1 206 Part\r\nContent-Length: 3\r\nContent-Range: bytes 3-5/6\r\n\r\nd"}});
    test::ScriptedAnswer rest = answer(206, "ef");
    rest.response.headers = {{"Content-Range", "bytes 4-5/6"}};
    session.queue(rest);
    HalfAnItem item;
    loop.run(api.fetch(7, item));
    EXPECT_EQ(item.bytes, "abcdef");
    EXPECT_THAT(dialer.received.back(), testing::HasSubstr("\r\nRange: bytes=3-\r\n"));
    EXPECT_FALSE(tokenWentTo(1));
    EXPECT_EQ(headerOf(session.requests.back(), "Range"), "bytes=4-");
}

TEST_F(Download, ACancelledOneLeavesNothingBehindOnAnyRoad) {
    struct Case {
        const char* name;
        std::optional<ScriptedNode> first;
        std::optional<ScriptedNode> second;
        std::optional<test::ScriptedAnswer> session;
    };
    const ScriptedNode silent{.then = ScriptedNode::silence};
    const test::ScriptedAnswer half{.response = {200, {}, "half"}, .hangs = true};
    const std::vector<Case> cases{
        {"session", {}, {}, half},
        {"a system that makes a failure of it", {}, {}, hanging(HTTPError(HTTPError::other, "cancelled"))},
        {"node", movedTo(nodeURL), silent, {}},
        {"elsewhere", movedTo(otherURL), {}, half},
        {"after a node", ScriptedNode{}, {}, half},
        {"redirected", {}, silent, redirect(302, nodeURL)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        now = now + 61;
        if (c.first) {
            lan.setAPIVerified(apiNode);
            dialer.queue(*c.first);
        }
        if (c.second) dialer.queue(*c.second);
        if (c.session) session.queue(*c.session);
        if (!c.first) lan.markBad(apiNode, now);
        const std::shared_ptr<VarkDownload> download = start();
        const TaskHandle<void> waiting = loop.start(download->value());
        loop.settle();
        EXPECT_FALSE(waiting.done());
        download->cancel();
        loop.settle();
        EXPECT_THROW(waiting.result(), CancellationError);
        EXPECT_TRUE(isTidy());
        EXPECT_FALSE(isBad(bytesNode));
        EXPECT_EQ(dialer.open, 0);
    }
}

TEST_F(Download, TheEndOfTheClientIsTheEndOfItsDownloads) {
    TaskHandle<void> waiting;
    {
        HTTPVarkAPI brief = client(loop.pool);
        session.queue(hanging());
        waiting = loop.start(brief.download(7, to)->value());
        loop.settle();
    }
    loop.settle();
    EXPECT_THROW(waiting.result(), CancellationError);
    EXPECT_TRUE(isTidy());
}

}  // namespace
}  // namespace vark
