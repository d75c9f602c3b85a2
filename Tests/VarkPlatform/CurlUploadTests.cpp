#include <fmt/format.h>

#include <semaphore>
#include <thread>

#include "Tests/VarkPlatform/CurlFixture.h"

namespace vark::test {
namespace {

class CurlUploadTest : public CurlFixture {
  protected:
    static void writeAll(BytePipe& pipe, std::string_view bytes) {
        while (!bytes.empty()) {
            const std::ptrdiff_t taken = pipe.write(bytes);
            if (taken < 0) return;
            bytes.remove_prefix(static_cast<std::size_t>(taken));
            if (!bytes.empty()) pipe.waitForSpace(std::chrono::hours(1));
        }
    }
    Task<HTTPResponse> upload(const URL& url, std::size_t length) {
        return session->upload(request(url, "PUT"), pipe, static_cast<std::int64_t>(length));
    }
    bool readingIsClosed() { return pipe->write("x") == -1; }

    std::shared_ptr<BytePipe> pipe = std::make_shared<BytePipe>(64 * 1024);
};

TEST_F(CurlUploadTest, CarriesEveryByteUpToTheLength) {
    // Bytes whose order cannot be changed unseen.
    std::string body;
    for (int number = 0; body.size() < 6 << 20; ++number)
        body += std::to_string(number) + ' ';
    for (const std::size_t length : {body.size() - 100, std::size_t{0}}) {
        SCOPED_TRACE(length);
        pipe = std::make_shared<BytePipe>(64 * 1024);
        std::string seen;
        ScriptedServer server(authority, [&](Conversation& client) {
            const RequestHead head = client.readHead().value();
            const bool isWhole = client.readBody(length) == std::string_view(body).substr(0, length);
            // Of an upload, a redirect is not followed.
            client.answer(307, "", "Location: /elsewhere\r\n");
            seen = fmt::format("{} {} {}", isWhole, head.header("Content-Length").value_or("-"),
                               head.header("Expect").value_or("-"));
        });
        std::jthread writer([&] { writeAll(*pipe, body); });
        EXPECT_EQ(outcome(upload(server.url("/chunk"), length)), "307");
        EXPECT_TRUE(readingIsClosed());
        EXPECT_EQ(seen, fmt::format("true {} -", length));
    }
}

TEST_F(CurlUploadTest, WaitsForASlowWriterAndGoesOnEachTime) {
    constexpr std::size_t pieces = 200;
    std::counting_semaphore<> arrived(1);
    ScriptedServer server(authority, [&](Conversation& client) {
        client.readHead();
        for (std::size_t piece = 0; piece < pieces; ++piece) {
            EXPECT_EQ(client.readBody(3), "abc");
            arrived.release();
        }
        client.answer(200, "");
    });
    std::jthread writer([&] {
        for (std::size_t piece = 0; piece < pieces; ++piece) {
            arrived.acquire();
            writeAll(*pipe, "abc");
        }
    });
    EXPECT_EQ(outcome(upload(server.url("/"), 3 * pieces)), "200");
}

TEST_F(CurlUploadTest, ComesToAnEndBeforeTheBodyDoes) {
    const auto answerAtOnce = [](Conversation& client) {
        client.answer(404, "no such upload");
        client.waitForTheEnd();
    };
    const auto resetInBetween = [](Conversation& client) {
        client.readBody(10);
        client.reset();
    };
    struct Case {
        const char* name;
        ScriptedServer::Script afterTheHead;
        std::size_t written;
        bool closed;
        std::string outcome;
    };
    const std::vector<Case> cases{
        {"the pipe ends short", [](Conversation& client) { client.waitForTheEnd(); }, 1000, true, "other"},
        {"answered while the writer is slow", answerAtOnce, 10, false, "404"},
        {"reset while the writer is slow", resetInBetween, 10, false, "connection lost"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        pipe = std::make_shared<BytePipe>(64 * 1024);
        ScriptedServer server(authority, [&](Conversation& client) {
            if (client.readHead()) one.afterTheHead(client);
        });
        writeAll(*pipe, std::string(one.written, 'x'));
        if (one.closed) pipe->closeWriting();
        EXPECT_EQ(outcome(upload(server.url("/"), 1'000'000)), one.outcome);
        EXPECT_TRUE(readingIsClosed());
    }
}

}  // namespace
}  // namespace vark::test
