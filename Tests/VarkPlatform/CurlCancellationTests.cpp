#include <algorithm>
#include <atomic>
#include <thread>

#include "Tests/VarkPlatform/CurlFixture.h"

namespace vark::test {
namespace {

class CurlCancellationTest : public CurlFixture {
  protected:
    std::shared_ptr<BytePipe> pipe = std::make_shared<BytePipe>(64 * 1024);
};

TEST_F(CurlCancellationTest, EndsATransferInEveryPhase) {
    struct Case {
        const char* name;
        ScriptedServer::Script untilThePhase;
        bool isUpload;
    };
    const std::vector<Case> cases{
        {"connecting", [](Conversation& client) { client.waitForFirstBytes(); }, false},
        {"sending what is not there yet", [](Conversation& client) { client.readHead(); }, true},
        {"in the middle of sending",
         [](Conversation& client) {
             client.readHead();
             client.readBody(1000);
         },
         true},
        {"waiting for the answer", [](Conversation& client) { client.readHead(); }, false},
        {"in the middle of the answer",
         [](Conversation& client) {
             client.readHead();
             client.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello");
         },
         false},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        pipe = std::make_shared<BytePipe>(64 * 1024);
        TaskHandle<HTTPResponse> handle;
        ScriptedServer server(authority, [&](Conversation& client) {
            one.untilThePhase(client);
            handle.cancel();
            client.waitForTheEnd();
        });
        pipe->write(std::string(1000, 'x'));
        const HTTPRequest asked = request(server.url("/"), one.isUpload ? "PUT" : "GET");
        handle = scope.start(one.isUpload ? session->upload(asked, pipe, 1'000'000) : session->data(asked));
        EXPECT_EQ(outcome(handle), "cancelled");
        EXPECT_EQ(pipe->write("x") == -1, one.isUpload);
    }
}

TEST_F(CurlCancellationTest, EndsARequestThatWaitsForAConnection) {
    HTTPSessionSettings narrow = settings();
    narrow.mostConnectionsPerHost = 1;
    CurlSession oneByOne(narrow);
    std::vector<std::string> targets;
    TaskHandle<HTTPResponse> second;
    ScriptedServer server(authority, answeringAll([&](Conversation& client, const RequestHead& head) {
                              targets.push_back(head.target);
                              second.cancel();
                              while (!second.done())
                                  std::this_thread::yield();
                              client.answer(200, "");
                          }));
    const TaskHandle<HTTPResponse> first = scope.start(oneByOne.data(request(server.url("/first"))));
    second = scope.start(oneByOne.data(request(server.url("/second"))));
    EXPECT_EQ(outcome(second), "cancelled");
    EXPECT_EQ(outcome(first), "200");
    // Whatever it left behind, the session serves as many as before.
    const TaskHandle<HTTPResponse> third = scope.start(oneByOne.data(request(server.url("/third"))));
    const TaskHandle<HTTPResponse> fourth = scope.start(oneByOne.data(request(server.url("/fourth"))));
    EXPECT_EQ(outcome(third), "200");
    EXPECT_EQ(outcome(fourth), "200");
    EXPECT_EQ(targets, (std::vector<std::string>{"/first", "/third", "/fourth"}));
}

TEST_F(CurlCancellationTest, SendsNothingForATaskThatWasCancelledBefore) {
    ScriptedServer server(
        authority, answeringAll([](Conversation& client, const RequestHead&) { client.answer(200, ""); }));
    const auto data = scope.start(session->data(request(server.url("/"))));
    const auto upload = scope.start(session->upload(request(server.url("/"), "PUT"), pipe, 1));
    data.cancel();
    upload.cancel();
    EXPECT_EQ(outcome(data), "cancelled");
    EXPECT_EQ(outcome(upload), "cancelled");
    EXPECT_EQ(pipe->write("x"), -1);
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(CurlCancellationTest, LosesNothingWhenEndsAndCancellationsMeet) {
    ScriptedServer server(authority, answeringAll([](Conversation& client, const RequestHead&) {
                              client.answer(200, "hello");
                          }));
    std::vector<TaskHandle<HTTPResponse>> handles;
    std::vector<std::shared_ptr<BytePipe>> pipes;
    for (int count = 0; count < 300; ++count) {
        if (count % 2 == 0) {
            handles.push_back(scope.start(session->data(request(server.url("/")))));
            continue;
        }
        pipes.push_back(std::make_shared<BytePipe>(16));
        handles.push_back(scope.start(session->upload(request(server.url("/"), "PUT"), pipes.back(), 100)));
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
    std::atomic<bool> halfWay = false;
    std::jthread canceller([&] {
        halfWay.wait(false);
        for (std::size_t place = 0; place < handles.size(); place += 3)
            handles[place].cancel();
    });
    int answered = 0;
    for (std::size_t place = 0; place < handles.size(); ++place) {
        const std::string how = outcome(handles[place]);
        EXPECT_TRUE(how == "200" || (how == "cancelled" && place % 3 == 0)) << place << " " << how;
        if (++answered == 30) {
            halfWay = true;
            halfWay.notify_one();
        }
    }
}

}  // namespace
}  // namespace vark::test
