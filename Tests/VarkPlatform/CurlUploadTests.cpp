#include "Tests/VarkPlatform/CurlFixture.h"

namespace vark::test {
namespace {

using CurlUploadTest = CurlFixture;

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
        const auto pipe = std::make_shared<BytePipe>(64 * 1024);
        ScriptedServer server(authority, [&](Conversation& client) {
            if (client.readHead()) one.afterTheHead(client);
        });
        pipe->write(std::string(one.written, 'x'));
        if (one.closed) pipe->closeWriting();
        EXPECT_EQ(outcome(session->upload(request(server.url("/"), "PUT"), pipe, 1'000'000)), one.outcome);
        EXPECT_EQ(pipe->write("x"), -1) << "nobody reads it any more";
    }
}

}  // namespace
}  // namespace vark::test
