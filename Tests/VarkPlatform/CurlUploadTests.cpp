#include <gmock/gmock.h>

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
    Task<HTTPResponse> upload(const ScriptedServer& server, std::int64_t length) {
        return session->upload(request(server.url("/chunk?key=secret"), "PUT"), pipe, length);
    }
    bool readingIsClosed() { return pipe->write("x") == -1; }

    std::shared_ptr<BytePipe> pipe = std::make_shared<BytePipe>(64 * 1024);
};

/// Bytes whose order cannot be changed unseen.
std::string numberedBytes(std::size_t length) {
    std::string bytes;
    for (std::size_t number = 0; bytes.size() < length; ++number)
        bytes += std::to_string(number) + ' ';
    bytes.resize(length);
    return bytes;
}

TEST_F(CurlUploadTest, CarriesEveryByteOfAFastWriter) {
    const std::string body = numberedBytes(20 << 20);
    bool arrivedWhole = false;
    RequestHead received;
    ScriptedServer server(authority, [&](Conversation& client) {
        received = client.readHead().value();
        arrivedWhole = client.readBody(body.size()) == body;
        client.answer(201, "");
    });
    std::jthread writer([&] {
        writeAll(*pipe, body);
        pipe->closeWriting();
    });
    EXPECT_EQ(outcome(upload(server, static_cast<std::int64_t>(body.size()))), "201");
    EXPECT_TRUE(arrivedWhole);
    EXPECT_EQ(received.method, "PUT");
    EXPECT_EQ(received.header("Content-Length"), std::to_string(body.size()));
    EXPECT_EQ(received.header("Expect"), std::nullopt);
    EXPECT_TRUE(readingIsClosed());
}

TEST_F(CurlUploadTest, WaitsForASlowWriterAndGoesOnEachTime) {
    constexpr std::int64_t pieces = 200;
    std::counting_semaphore<> arrived(1);
    ScriptedServer server(authority, [&](Conversation& client) {
        client.readHead();
        for (std::int64_t piece = 0; piece < pieces; ++piece) {
            EXPECT_EQ(client.readBody(3), "abc");
            arrived.release();
        }
        client.answer(200, "");
    });
    std::jthread writer([&] {
        for (std::int64_t piece = 0; piece < pieces; ++piece) {
            arrived.acquire();
            writeAll(*pipe, "abc");
        }
    });
    EXPECT_EQ(outcome(upload(server, 3 * pieces)), "200");
}

TEST_F(CurlUploadTest, SendsABodyOfNoBytes) {
    std::optional<std::string> length;
    ScriptedServer server(authority, [&](Conversation& client) {
        length = client.readHead().value().header("Content-Length");
        client.answer(200, "");
    });
    pipe->closeWriting();
    EXPECT_EQ(outcome(upload(server, 0)), "200");
    EXPECT_EQ(length, "0");
}

TEST_F(CurlUploadTest, SendsNoMoreThanTheLength) {
    std::vector<std::string> methods;
    ScriptedServer server(authority, answeringAll([&](Conversation& client, const RequestHead& head) {
                              methods.push_back(head.method);
                              client.answer(200, "");
                          }));
    writeAll(*pipe, "abcdef");
    EXPECT_EQ(outcome(upload(server, 3)), "200");
    EXPECT_EQ(outcome(session->data(request(server.url("/")))), "200");
    EXPECT_THAT(methods, testing::ElementsAre("PUT", "GET"));
    EXPECT_EQ(server.connections(), 1);
}

TEST_F(CurlUploadTest, ComesToAnEndBeforeTheBodyDoes) {
    const auto answerAtOnce = [](Conversation& client) {
        client.readHead();
        client.answer(404, "no such upload");
        client.waitForTheEnd();
    };
    struct Case {
        const char* name;
        ScriptedServer::Script script;
        std::size_t written;
        bool closed;
        std::string outcome;
    };
    const std::vector<Case> cases{
        {"the pipe ends short",
         [](Conversation& client) {
             client.readHead();
             client.waitForTheEnd();
         },
         1000, true, "other"},
        {"the pipe ends with nothing",
         [](Conversation& client) {
             client.readHead();
             client.waitForTheEnd();
         },
         0, true, "other"},
        {"answered while the writer is slow", answerAtOnce, 10, false, "404"},
        {"answered while the writer is fast", answerAtOnce, 65'536, false, "404"},
        {"reset while the writer is slow",
         [](Conversation& client) {
             client.readHead();
             client.readBody(10);
             client.reset();
         },
         10, false, "connection lost"},
        {"nobody is trusted", [](Conversation& client) { client.reset(); }, 10, false, "cannot connect"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        pipe = std::make_shared<BytePipe>(64 * 1024);
        ScriptedServer server(authority, one.script);
        writeAll(*pipe, std::string(one.written, 'x'));
        if (one.closed) pipe->closeWriting();
        EXPECT_EQ(outcome(upload(server, 1'000'000)), one.outcome);
        EXPECT_TRUE(readingIsClosed());
    }
}

TEST_F(CurlUploadTest, IsNotRedirected) {
    ScriptedServer server(authority, [](Conversation& client) {
        client.readHead();
        client.readBody(3);
        client.answer(307, "", "Location: /elsewhere\r\n");
    });
    writeAll(*pipe, "abc");
    EXPECT_EQ(outcome(upload(server, 3)), "307");
}

TEST_F(CurlUploadTest, ClosesTheBodyOfARequestThatIsNeverSent) {
    HTTPRequest broken = request(url("https://127.0.0.1:1/"), "PUT");
    broken.headers = {{"X-Name", "a\nb"}};
    EXPECT_EQ(outcome(session->upload(broken, pipe, 3)), "other");
    EXPECT_TRUE(readingIsClosed());
}

}  // namespace
}  // namespace vark::test
