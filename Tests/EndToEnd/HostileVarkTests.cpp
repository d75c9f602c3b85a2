#include <gtest/gtest.h>

#include <atomic>

#include "Tests/Support/Boxes/RealVark.h"
#include "Tests/Support/Programs.h"
#include "Tests/Support/ScriptedServer.h"

namespace vark::test {
namespace {

/// Far below what the answers here would take, and above what a build with sanitizers takes for itself: the
/// thread sanitizer keeps some bytes of its own for each of the program's.
std::int64_t mostMemory() {
    const std::string& sanitizers = Programs::get().sanitizers();
    return (sanitizers == "thread" ? 800 : 500) << 20;
}

std::string millionTimes(std::string_view item) {
    std::string all = "[";
    for (int count = 1; count < 1'000'000; ++count)
        all.append(item).append(",");
    return all.append(item).append("]");
}

/// A vark that answers as it should, but for what a test has put in its mouth.
class HostileVark : public testing::Test {
  protected:
    void SetUp() override {
        const Finished connected = vark.run({"connect", server.url("").text(), "--token-file",
                                             vark.write("token", "t0ken\n"), "--ca-file", authority.file()});
        ASSERT_EQ(connected.exit, exitCode(0)) << connected.errors;
    }

    struct Answer {
        std::string target;
        std::string body;
    };

    void converse(Conversation& conversation) {
        while (const std::optional<RequestHead> head = conversation.readHead()) {
            conversation.readBody(std::stoul(head->header("Content-Length").value_or("0")));
            conversation.answer(200, answerTo(head->target));
        }
    }
    std::string_view answerTo(const std::string& target) const {
        static const std::vector<Answer> usual{
            {"/api/whoami", R"({"email": "a@vark.example", "client": "Acme", "level": 5})"},
            {"/api/item?", R"({"id": 5, "path": "Jobs", "name": "Jobs", "is_dir": true})"}};
        const Answer* special = hostile;
        if (special != nullptr && target.contains(special->target)) return special->body;
        for (const Answer& answer : usual) {
            if (target.contains(answer.target)) return answer.body;
        }
        return "{}";
    }

    std::atomic<const Answer*> hostile = nullptr;
    RealVark vark;
    TestAuthority authority;
    ScriptedServer server{authority, [this](Conversation& conversation) { converse(conversation); }};
};

TEST_F(HostileVark, WhoseAnswersAreEndlessCausesAnErrorAndTakesLittleMemory) {
    const std::string take = vark.write("Take.mov", std::string(9 << 20, 'x'));
    const std::string item = R"({"id":1,"path":"Jobs/a","name":"a","parent":0,"size":1,"is_dir":false})";
    const std::string list = "/api/items/";
    const std::vector<Answer> answers{
        {"/api/upload/begin", R"({"upload_id": "u", "chunk_size": 1})"},
        {"/api/upload/begin",
         R"({"upload_id": "u", "chunk_size": 8388608, "have": )" + millionTimes("-7") + "}"},
        {list, std::string(10'000'000, '[')},
        {list, R"({"items": )" + millionTimes(item) + "}"},
    };
    for (const Answer& one : answers) {
        SCOPED_TRACE(one.body.substr(0, 80));
        hostile = &one;
        const Finished run = one.target == list ? vark.run({"ls", "Jobs"}) : vark.run({"send", take});
        EXPECT_EQ(run.exit, exitCode(1)) << run.output << run.errors;
        EXPECT_NE(run.errors, "");
        EXPECT_LT(run.errors.size(), 4096U);
        EXPECT_LT(run.peakMemory, mostMemory());
        vark.run({"clear"});
    }
}

}  // namespace
}  // namespace vark::test
