#include <algorithm>
#include <atomic>
#include <thread>

#include "Tests/VarkPlatform/CurlFixture.h"

namespace vark::test {
namespace {

using CurlCancellationTest = CurlFixture;

TEST_F(CurlCancellationTest, EndsATransferInEveryPhase) {
    const auto readABit = [](Conversation& client) {
        client.readHead();
        client.readBody(1000);
    };
    const auto answerABit = [](Conversation& client) {
        client.readHead();
        client.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello");
    };
    struct Case {
        const char* name;
        ScriptedServer::Script untilThePhase;
        bool isUpload;
    };
    const std::vector<Case> cases{
        {"before it has begun", nullptr, true},
        {"connecting", [](Conversation& client) { client.waitForFirstBytes(); }, false},
        {"in the middle of sending", readABit, true},
        {"in the middle of the answer", answerABit, false},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        const auto pipe = std::make_shared<BytePipe>(64 * 1024);
        pipe->write(std::string(1000, 'x'));
        TaskHandle<HTTPResponse> handle;
        ScriptedServer server(authority, [&](Conversation& client) {
            one.untilThePhase(client);
            handle.cancel();
            client.waitForTheEnd();
        });
        const HTTPRequest asked = request(server.url("/"), one.isUpload ? "PUT" : "GET");
        handle = scope.start(one.isUpload ? session->upload(asked, pipe, 1'000'000) : session->data(asked));
        if (!one.untilThePhase) handle.cancel();
        EXPECT_EQ(outcome(handle), "cancelled");
        EXPECT_EQ(pipe->write("x") == -1, one.isUpload);
        EXPECT_EQ(server.connections(), one.untilThePhase ? 1 : 0);
    }
}

TEST_F(CurlCancellationTest, LosesNothingWhenEndsAndCancellationsMeet) {
    ScriptedServer server(authority, answeringAll(200));
    std::vector<TaskHandle<HTTPResponse>> handles;
    std::vector<std::shared_ptr<BytePipe>> pipes;
    for (int count = 0; count < 150; ++count) {
        pipes.push_back(std::make_shared<BytePipe>(16));
        handles.push_back(scope.start(session->upload(request(server.url("/"), "PUT"), pipes.back(), 100)));
        handles.push_back(scope.start(session->data(request(server.url("/")))));
    }
    // Never waits for one of them: only six are under way, and nobody knows which.
    std::jthread writer([&] {
        std::vector<std::size_t> missing(pipes.size(), 100);
        while (std::ranges::any_of(missing, [](std::size_t count) { return count > 0; })) {
            for (std::size_t place = 0; place < pipes.size(); ++place) {
                const std::ptrdiff_t taken = pipes[place]->write(std::string(missing[place], 'x'));
                missing[place] = taken < 0 ? 0 : missing[place] - static_cast<std::size_t>(taken);
            }
            std::this_thread::yield();
        }
    });
    std::atomic<bool> someHaveEnded = false;
    std::jthread canceller([&] {
        someHaveEnded.wait(false);
        for (std::size_t place = 0; place < handles.size(); place += 3)
            handles[place].cancel();
    });
    for (std::size_t place = 0; place < handles.size(); ++place) {
        const std::string how = outcome(handles[place]);
        EXPECT_TRUE(how == "200" || (how == "cancelled" && place % 3 == 0)) << place << " " << how;
        if (place < 30) continue;
        someHaveEnded = true;
        someHaveEnded.notify_one();
    }
}

}  // namespace
}  // namespace vark::test
