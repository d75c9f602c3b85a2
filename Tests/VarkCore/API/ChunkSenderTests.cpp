#include "Tests/Support/APIWorld.h"

#include <semaphore>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Upload/TokenBucket.h"

namespace vark::test {
namespace {

using E = VarkAPIError;

/// Bytes of which no two pieces are alike.
std::string someBytes(std::size_t count) {
    std::string bytes(count, '\0');
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<char>(i * 2'654'435'761U >> 24);
    return bytes;
}

class ChunkSender : public APIWorld {
  public:
    TemporaryFolder folder;
    const std::string bytes = someBytes(2'000'001);
    const std::int64_t size = std::ssize(bytes);
    std::filesystem::path file = folder.file("clip.mov", bytes);
    /// For a chunk of which a part stays unread in the pipe.
    BlockingPool writers{1};
    HTTPVarkAPI patient = client(writers);

    Task<void> small() { return api.putChunk("u1", 5, file, 0, 8, nullptr, nullptr); }
    TaskHandle<void> startWhole(TokenBucket* limiter, VarkAPI::ChunkProgress progress = nullptr) {
        return loop.start(patient.putChunk("u1", 0, file, 0, size, limiter, std::move(progress)));
    }
    std::optional<E> endOf(const TaskHandle<void>& sending) {
        loop.executor.runUntil([&] { return sending.done(); });
        return failureOf(sending.value());
    }
};

TEST_F(ChunkSender, SendsTheBytesOfItsChunkAndTellsEachPiece) {
    const std::pair<std::int64_t, std::int64_t> chunks[] = {{50, 600 * 1024}, {0, size}, {0, 0}};
    for (const auto& [offset, length] : chunks) {
        session.queue(204);
        std::vector<std::int64_t> told{0};
        loop.run(api.putChunk("u1", 3, file, offset, length, nullptr,
                              [&told](std::int64_t sent) { told.push_back(sent); }));
        const auto begin = bytes.begin() + offset;
        EXPECT_TRUE(session.uploads.back() == std::string(begin, begin + length));
        EXPECT_EQ(told.back(), length);
        EXPECT_EQ(std::ssize(told) - 1, (length + 262'143) / 262'144);
        EXPECT_EQ(session.requests.back().method, "PUT");
        EXPECT_EQ(headerOf(session.requests.back(), "Content-Length"), std::to_string(length));
    }
}

TEST_F(ChunkSender, GoesWhereBeginSaidAndTakesTheTokenOnlyToTheApplication) {
    struct Case {
        std::string begin;
        std::string url;
    };
    const std::string app = "https://vark.example/portal/api/upload/u1/5";
    const Case cases[] = {
        {"", app},
        {R"(,"chunk_url":"https://bytes.example:8443/u?k=1")", "https://bytes.example:8443/u/5?k=1"},
        {R"(,"chunk_url":"file:///etc/passwd")", app},
        {R"(,"chunk_url":"https://other.example/u/abc")", "https://other.example/u/abc/5"},
        {R"(,"chunk_url":"https://bad host/")", app},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.begin);
        session.queue(200, R"({"upload_id":"u1","chunk_size":8)" + c.begin + "}");
        loop.run(api.begin("a", 1, "ab", 0, false));
        session.queue(200);
        loop.run(small());
        EXPECT_EQ(session.requests.back().url.text(), c.url);
        EXPECT_EQ(headerOf(session.requests.back(), "Authorization"), c.url == app ? "Bearer t0ken" : "");
    }
    session.requests.clear();
    api.rememberChunkBase("u1", "https://bytes.example/u");
    token = std::nullopt;
    EXPECT_EQ(failureOf(small()), E::notConnected()) << "signed out, nothing goes anywhere";
    EXPECT_TRUE(session.requests.empty());
}

TEST_F(ChunkSender, JudgesTheStatusByTheHostThatGaveIt) {
    const std::tuple<int, std::string, std::optional<E>> cases[] = {
        {299, "", {}},
        {300, "", E::server(300)},
        {400, R"({"error":"Not here"})", E::server(400, "Not here")},
        {401, R"({"sign_out":true})", E::unauthorized({}, "VARK-410")},
        {404, "", E::uploadGone()},
        {409, R"({"conflict":true})", E::uploadGone()},
        {410, "", E::uploadGone()},
        {500, R"({"error":"Full"})", E::server(500, "Full")},
    };
    for (const auto& [status, body, failure] : cases) {
        SCOPED_TRACE(status);
        session.queue(status, body);
        EXPECT_EQ(failureOf(small()), status == 400 ? E::wrongChunkRoute("Not here") : failure);
        api.rememberChunkBase("u1", "https://b.example/u");
        session.queue(status, body);
        EXPECT_EQ(failureOf(small()), failure);
        api.rememberChunkBase("u1", std::nullopt);
    }
}

TEST_F(ChunkSender, WhatBreaksOffIsToldByItsCause) {
    const E isShorter = E::transport("clip.mov is shorter than it was. Was it changed?");
    const E isGone = E::transport("Could not open gone.mov.");
    struct Case {
        const char* file;
        std::int64_t offset;
        ScriptedAnswer answer;
        E failure;
    };
    const Case cases[] = {
        // Once the session fails over the body that breaks off, once the vark answers to it.
        {"clip.mov", 1, answer(200), isShorter},
        {"clip.mov", 1, answer(500).afterAShortBody(), isShorter},
        {"gone.mov", 0, answer(200), isGone},
        {"gone.mov", 0, answer(500).afterAShortBody(), isGone},
        {"clip.mov", 0, answer(410).afterTaking(100), E::uploadGone()},
        {"clip.mov", 0, failure(HTTPError::timedOut).afterTaking(100),
         E::transport("The connection timed out.")},
        // A vark cannot have taken what it was not sent.
        {"clip.mov", 0, answer(200).afterTaking(100), E::transport("The connection closed while sending.")},
    };
    for (const Case& c : cases) {
        session.queue(c.answer);
        EXPECT_EQ(
            endOf(loop.start(patient.putChunk("u1", 0, folder / c.file, c.offset, size, nullptr, nullptr))),
            c.failure);
    }
}

TEST_F(ChunkSender, ThatStandsStillIsGivenUpAndOneThatIsCancelledIsCancelled) {
    patient.stallWatch.noProgress = 10;
    for (const bool isCancelled : {true, false}) {
        // The vark takes nothing, so the writer stands before a full pipe.
        session.queue(hanging(HTTPError(HTTPError::connectionLost, "cancelled")).afterTaking(0));
        std::counting_semaphore<> pieces{0};
        const TaskHandle<void> sending = startWhole(nullptr, [&pieces](std::int64_t) { pieces.release(); });
        loop.settle();
        for (int i = 0; i < 4; ++i)
            pieces.acquire();
        loop.advance(std::chrono::seconds(10));
        EXPECT_FALSE(sending.done());
        if (!isCancelled) loop.advance(std::chrono::seconds(2));
        if (isCancelled) sending.cancel();
        if (isCancelled) EXPECT_THROW(endOf(sending), CancellationError);
        if (!isCancelled)
            EXPECT_EQ(endOf(sending), E::transport("The vark stopped taking this piece; sending it again."));
    }
}

TEST_F(ChunkSender, KeepsThePaceOfItsLimiter) {
    // Fast enough that the pauses are a matter of microseconds.
    TokenBucket limiter(10'000'000'000);
    session.queue(200);
    EXPECT_EQ(endOf(startWhole(&limiter)), std::nullopt);
    // What is promised stands from a quarter of a second before now.
    limiter.delay(2'500'000'000 - size, now);
    EXPECT_NEAR(limiter.delay(10'000'000'000, now), 0, 1e-6);
    EXPECT_NEAR(limiter.delay(1, now), 1, 1e-6);
}

}  // namespace
}  // namespace vark::test
