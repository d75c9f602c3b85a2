#include "Tests/Support/APIWorld.h"

#include <semaphore>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Upload/TokenBucket.h"

namespace vark {
namespace {

using test::answer;
using test::APIWorld;
using test::failure;
using test::hanging;
using test::headerOf;

constexpr std::int64_t kibi = 1024;

/// Bytes of which no two pieces are alike.
std::string someBytes(std::size_t count) {
    std::string bytes(count, '\0');
    std::uint32_t state = 1;
    for (char& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

class ChunkSender : public APIWorld {
  public:
    TemporaryFolder folder;
    std::string bytes = someBytes(700 * kibi);
    std::filesystem::path file = folder.file("clip.mov", bytes);

    Task<void> chunk(std::int64_t index, std::int64_t offset, std::int64_t length) {
        return api.putChunk("u1", index, file, offset, length, nullptr, nullptr);
    }
    Task<void> wholeFile() { return chunk(0, 0, 700 * kibi); }
};

TEST_F(ChunkSender, SendsTheBytesOfItsChunkAndTellsEachPiece) {
    session.queue(200);
    std::vector<std::int64_t> told;
    loop.run(api.putChunk("u1", 3, file, 50, 600 * kibi, nullptr,
                          [&told](std::int64_t sent) { told.push_back(sent); }));
    EXPECT_EQ(session.uploads.front(), bytes.substr(50, 600 * kibi));
    EXPECT_EQ(told, (std::vector<std::int64_t>{256 * kibi, 512 * kibi, 600 * kibi}));

    const HTTPRequest& request = session.requests.front();
    EXPECT_EQ(request.method, "PUT");
    EXPECT_EQ(headerOf(request, "Content-Type"), "application/octet-stream");
    EXPECT_EQ(headerOf(request, "Content-Length"), "614400");
    EXPECT_EQ(request.idleLimit, std::chrono::seconds(60));
}

TEST_F(ChunkSender, AChunkLargerThanThePipeArrivesWhole) {
    const std::string large = someBytes(3000 * kibi + 1);
    file = folder.file("large.mov", large);
    session.queue(204);
    loop.run(chunk(0, 0, std::ssize(large)));
    EXPECT_TRUE(session.uploads.front() == large);
}

TEST_F(ChunkSender, AnEmptyChunkSendsNoBytes) {
    session.queue(200);
    loop.run(chunk(0, 0, 0));
    EXPECT_EQ(session.uploads.front(), "");
    EXPECT_EQ(headerOf(session.requests.front(), "Content-Length"), "0");
}

TEST_F(ChunkSender, GoesWhereBeginSaidAndTakesTheTokenOnlyToTheApplication) {
    struct Case {
        std::string begin;
        std::string url;
        std::string authorization;
    };
    const std::string app = "https://vark.example/portal/api/upload/u1/5";
    const Case cases[] = {
        {"", app, "Bearer t0ken"},
        {R"(,"chunk_url":"https://bytes.example:8443/u/abc?k=1")", "https://bytes.example:8443/u/abc/5?k=1",
         ""},
        {R"(,"chunk_url":"https://other.example/u/abc")", "https://other.example/u/abc/5", ""},
        {R"(,"chunk_url":"file:///etc/passwd")", app, "Bearer t0ken"},
        {R"(,"chunk_url":"https://bytes.example/u")", "https://bytes.example/u/5", ""},
        {R"(,"chunk_url":"https://bad host/")", app, "Bearer t0ken"},
        {R"(,"chunk_url":"https://bytes.example/u")", "https://bytes.example/u/5", ""},
        {"", app, "Bearer t0ken"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.begin);
        session.queue(200, R"({"upload_id":"u1","chunk_size":8)" + c.begin + "}");
        loop.run(api.begin("a", 1, "ab", 0, false));
        session.queue(200);
        loop.run(chunk(5, 0, 8));
        EXPECT_EQ(session.requests.back().url.text(), c.url);
        EXPECT_EQ(headerOf(session.requests.back(), "Authorization"), c.authorization);
    }
}

TEST_F(ChunkSender, NothingIsKeptOfAnUploadThatHasEnded) {
    struct Case {
        const char* name;
        int status;
        std::function<Task<void>()> end;
        bool waysStay;
    };
    const auto finish = [this]() -> Task<void> { co_await api.finish("u1"); };
    const auto status = [this]() -> Task<void> { co_await api.status("u1"); };
    const Case cases[] = {
        {"landed", 202, finish, true},
        {"gone when it was finished", 409, finish, false},
        {"gone when it was asked about", 410, status, false},
        {"gone in the middle", 404, [this] { return chunk(1, 0, 8); }, false},
        {"cancelled", 204, [this] { return api.cancel("u1"); }, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        api.rememberChunkBase("u1", "https://bytes.example/u");
        session.queue(200);
        loop.run(chunk(0, 0, 8));
        session.queue(c.status);
        failureOf(c.end());
        EXPECT_EQ(ways.take("u1").internet, c.waysStay);
        session.queue(200);
        loop.run(chunk(0, 0, 8));
        EXPECT_EQ(session.requests.back().url.host(), "vark.example");
        ways.take("u1");
    }
}

TEST_F(ChunkSender, WithoutATokenNoChunkGoesAnywhere) {
    api.rememberChunkBase("u1", "https://bytes.example/u");
    token = std::nullopt;
    EXPECT_EQ(failureOf(wholeFile()), VarkAPIError::notConnected());
    EXPECT_TRUE(session.requests.empty());
}

TEST_F(ChunkSender, JudgesTheStatusByTheHostThatGaveIt) {
    struct Case {
        int status;
        std::string body;
        std::optional<VarkAPIError> viaApp;
        std::optional<VarkAPIError> toBase;
    };
    using E = VarkAPIError;
    const auto ok = std::nullopt;
    const Case cases[] = {
        {200, "", ok, ok},
        {299, "", ok, ok},
        {300, "", E::server(300), E::server(300)},
        {400, R"({"error":"Not here"})", E::wrongChunkRoute("Not here"), E::server(400, "Not here")},
        {400, "<html>", E::wrongChunkRoute(), E::server(400)},
        {401, R"({"sign_out":true})", E::unauthorized(ok, "VARK-410"), E::unauthorized(ok, "VARK-410")},
        {404, "", E::uploadGone(), E::uploadGone()},
        {409, R"({"conflict":true})", E::uploadGone(), E::uploadGone()},
        {410, "", E::uploadGone(), E::uploadGone()},
        {429, "", E::server(429), E::server(429)},
        {500, R"({"error":"Full"})", E::server(500, "Full"), E::server(500, "Full")},
        {0, "", E::server(0), E::server(0)},
    };
    for (const bool toBase : {false, true}) {
        api.rememberChunkBase("u1",
                              toBase ? std::optional<std::string>("https://b.example/u") : std::nullopt);
        for (const Case& c : cases) {
            session.queue(c.status, c.body);
            EXPECT_EQ(failureOf(wholeFile()), toBase ? c.toBase : c.viaApp) << c.status << " " << toBase;
        }
    }
}

TEST_F(ChunkSender, AFileThatIsNotWhatItWasIsToldBeforeAnyStatus) {
    folder.file("folder/inside");
    struct Case {
        std::string name;
        std::int64_t offset;
        std::string sentence;
    };
    const Case cases[] = {
        {"gone.mov", 0, "Could not open gone.mov."},
        {"folder", 0, "Could not open folder."},
        {"clip.mov", 1, "clip.mov is shorter than it was. Was it changed?"},
        {"clip.mov", 900 * kibi, "clip.mov is shorter than it was. Was it changed?"},
    };
    for (const Case& c : cases) {
        file = folder / c.name;
        // Once the session fails over the body that breaks off, once the vark answers to it.
        session.queue(answer(200));
        EXPECT_EQ(failureOf(chunk(0, c.offset, 700 * kibi)), VarkAPIError::transport(c.sentence));
        session.queue(answer(500).afterAShortBody());
        EXPECT_EQ(failureOf(chunk(0, c.offset, 700 * kibi)), VarkAPIError::transport(c.sentence));
    }
}

TEST_F(ChunkSender, ARefusalBeforeAllIsSentIsStillWhatTheVarkSaid) {
    BlockingPool writers(1);
    HTTPVarkAPI patient = client(writers);
    file = folder.file("large.mov", someBytes(3000 * kibi));
    const auto send = [&] {
        const TaskHandle<void> sending =
            loop.start(patient.putChunk("u1", 0, file, 0, 3000 * kibi, nullptr, nullptr));
        loop.executor.runUntil([&] { return sending.done(); });
        return failureOf(sending.value());
    };
    session.queue(answer(410).afterTaking(100));
    EXPECT_EQ(send(), VarkAPIError::uploadGone());
    session.queue(failure(HTTPError::notConnectedToInternet).afterTaking(100));
    EXPECT_EQ(send(), VarkAPIError::transport("No network connection."));
    // A vark cannot have taken what it was not sent.
    session.queue(answer(200).afterTaking(100));
    EXPECT_EQ(send(), VarkAPIError::transport("The connection closed while sending."));
}

TEST_F(ChunkSender, ANetworkThatFailsIsASentence) {
    session.queue(failure(HTTPError::connectionLost));
    EXPECT_EQ(failureOf(wholeFile()), VarkAPIError::transport("The connection dropped."));
}

TEST_F(ChunkSender, GivesUpWhenTheVarkStaysSilentAfterTheLastByte) {
    session.queue(hanging());
    const TaskHandle<void> sending = loop.start(wholeFile());
    loop.advance(std::chrono::seconds(180));
    EXPECT_FALSE(sending.done());
    // A second more when the watch began to look before the writer had moved its bytes.
    loop.advance(std::chrono::seconds(2));
    ASSERT_TRUE(sending.done());
    EXPECT_EQ(failureOf(sending.value()),
              VarkAPIError::transport("The vark took every byte and did not answer; sending it again."));
}

/// A chunk of which the vark takes nothing, so that the writer stands before a full pipe.
class StuckChunk : public ChunkSender {
  public:
    BlockingPool writers{1};
    HTTPVarkAPI stuck = client(writers);
    std::counting_semaphore<> pieces{0};

    TaskHandle<void> startStuck() {
        file = folder.file("large.mov", someBytes(2000 * kibi));
        session.queue(hanging(HTTPError(HTTPError::connectionLost, "cancelled")).afterTaking(0));
        const TaskHandle<void> sending = loop.start(stuck.putChunk(
            "u1", 0, file, 0, 2000 * kibi, nullptr, [this](std::int64_t) { pieces.release(); }));
        loop.settle();
        for (int i = 0; i < 4; ++i)
            pieces.acquire();
        return sending;
    }
    void runToTheEnd(const TaskHandle<void>& sending) {
        loop.executor.runUntil([&] { return sending.done(); });
    }
};

TEST_F(StuckChunk, GivesUpWhenBytesStandStill) {
    stuck.stallWatch.noProgress = 10;
    const TaskHandle<void> sending = startStuck();
    loop.advance(std::chrono::seconds(10));
    EXPECT_FALSE(sending.done());
    // A second more when the watch began to look before the writer had filled the pipe.
    loop.advance(std::chrono::seconds(2));
    runToTheEnd(sending);
    EXPECT_EQ(failureOf(sending.value()),
              VarkAPIError::transport("The vark stopped taking this piece; sending it again."));
}

TEST_F(StuckChunk, ACancelledChunkIsCancelledWhateverTheSessionMakesOfIt) {
    const TaskHandle<void> sending = startStuck();
    sending.cancel();
    runToTheEnd(sending);
    EXPECT_THROW(sending.result(), CancellationError);
}

TEST_F(ChunkSender, ACancelledChunkThatWaitsForAnAnswerIsCancelled) {
    session.queue(hanging());
    const TaskHandle<void> sending = loop.start(wholeFile());
    loop.settle();
    sending.cancel();
    loop.settle();
    EXPECT_THROW(sending.result(), CancellationError);
}

TEST_F(ChunkSender, EachPieceIsPromisedByTheLimiter) {
    // Fast enough that the pauses are a matter of microseconds.
    TokenBucket limiter(10'000'000'000);
    session.queue(200);
    loop.run(api.putChunk("u1", 0, file, 0, 700 * kibi, &limiter, nullptr));
    // What is promised stands from a quarter of a second before now.
    limiter.delay(2'500'000'000 - 700 * kibi, now);
    EXPECT_NEAR(limiter.delay(1, now), 0, 1e-6);
    EXPECT_NEAR(limiter.delay(10'000'000'000, now), 0, 1e-6);
    EXPECT_NEAR(limiter.delay(1, now), 1, 1e-6);
}

TEST_F(ChunkSender, ACancelledChunkDoesNotSitOutThePauseOfItsLimiter) {
    TokenBucket limiter(1);
    limiter.delay(1'000'000, now);
    session.queue(hanging().afterTaking(0));
    BlockingPool writers(1);
    HTTPVarkAPI paced = client(writers);
    const TaskHandle<void> sending = loop.start(paced.putChunk("u1", 0, file, 0, 8, &limiter, nullptr));
    loop.settle();
    const auto before = std::chrono::steady_clock::now();
    sending.cancel();
    loop.executor.runUntil([&] { return sending.done(); });
    EXPECT_THROW(sending.result(), CancellationError);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(1));
}

TEST_F(ChunkSender, ManyChunksGoAtOnce) {
    session.script = [](const HTTPRequest&) { return answer(200); };
    std::vector<TaskHandle<void>> sendings;
    for (std::int64_t i = 0; i < 7; ++i)
        sendings.push_back(loop.start(chunk(i, i * 100 * kibi, 100 * kibi)));
    // Readers and writers share the eight threads of the loop, so some wait their turn.
    loop.settle();
    for (const TaskHandle<void>& sending : sendings)
        sending.result();
    std::ranges::sort(session.uploads);
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < 7; ++i)
        expected.push_back(bytes.substr(i * 100 * kibi, 100 * kibi));
    std::ranges::sort(expected);
    EXPECT_TRUE(session.uploads == expected);
}

}  // namespace
}  // namespace vark
