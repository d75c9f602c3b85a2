#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>

#include "Tests/Support/Boxes/RealVark.h"
#include "Tests/Support/SampleFiles.h"
#include "Tests/Support/ScriptedServer.h"

namespace vark::test {
namespace {

using testing::HasSubstr;

/// Far below what the answers here would take, and above what a build with sanitizers takes for itself: the
/// thread sanitizer keeps some bytes of its own for each of the program's.
#if __has_feature(thread_sanitizer)
constexpr std::int64_t mostMemory = 800 << 20;
#else
constexpr std::int64_t mostMemory = 400 << 20;
#endif

std::string repeated(std::string_view text, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

std::string millionTimes(std::string_view item) {
    return "[" + repeated(fmt::format("{},", item), 1'000'000) + std::string(item) + "]";
}

/// A vark that answers as it should, but for what a test has put in its mouth.
class HostileVark : public testing::Test {
  protected:
    void SetUp() override {
        const Finished connected = vark.run({"connect", server.url("").text(), "--token-file",
                                             vark.write("token", "t0ken\n"), "--ca-file", authority.file()});
        ASSERT_EQ(connected.exit, exitCode(0)) << connected.errors;
    }

    /// What a target with these words is answered with from here on, sent so many times.
    void answer(const char* target, std::string body, std::size_t times = 1) {
        const std::lock_guard guard(lock_);
        hostile_ = {target, std::move(body), times};
    }
    void expectAnErrorAndLittleMemory(const Finished& run) const {
        RecordProperty("megabytes", std::to_string(run.peakMemory >> 20));
        EXPECT_EQ(run.exit, exitCode(1)) << run.output << run.errors;
        EXPECT_NE(run.errors, "");
        EXPECT_LT(run.errors.size(), 4096U);
        EXPECT_LT(run.peakMemory, mostMemory);
    }

    RealVark vark;

  private:
    struct Answer {
        const char* target = "";
        std::string body;
        std::size_t times = 1;
        int status = 200;
    };

    void converse(Conversation& conversation) {
        while (const std::optional<RequestHead> head = conversation.readHead()) {
            conversation.readBody(std::stoul(head->header("Content-Length").value_or("0")));
            const Answer answer = answerFor(head->target);
            const std::size_t length = answer.body.size() * answer.times;
            bool isTaken = conversation.write(
                fmt::format("HTTP/1.1 {} Scripted\r\nContent-Length: {}\r\n\r\n", answer.status, length));
            for (std::size_t count = 0; count < answer.times && isTaken; ++count)
                isTaken = conversation.write(answer.body);
        }
    }
    Answer answerFor(const std::string& target) {
        const std::lock_guard guard(lock_);
        for (const Answer& answer :
             {hostile_,
              {"/api/whoami", R"({"email": "a@vark.example", "client": "Acme", "level": 5})"},
              {"/api/item?", R"({"id": 5, "path": "Jobs", "name": "Jobs", "is_dir": true})"}}) {
            if (target.contains(answer.target)) return answer;
        }
        return {"", R"({"error": "There is no such thing."})", 1, 404};
    }

    std::mutex lock_;
    Answer hostile_{.target = "nothing yet", .body = ""};
    TestAuthority authority;
    ScriptedServer server{authority, [this](Conversation& conversation) { converse(conversation); }};
};

TEST_F(HostileVark, AnAnswerOfAGibibyteIsCutOff) {
    answer("/api/whoami", std::string(1 << 20, 'a'), 1024);
    const Finished asked = vark.run({"whoami"});
    expectAnErrorAndLittleMemory(asked);
    EXPECT_THAT(asked.errors, HasSubstr("longer than expected"));
}

TEST_F(HostileVark, AnEndlessListIsAnErrorAndNotACrash) {
    const std::string item = R"({"id":1,"path":"Jobs/a","name":"a","parent":0,"size":1,"is_dir":false})";
    for (const std::string& body : {R"({"items": )" + millionTimes(R"({"id":1})") + "}",
                                    R"({"items": )" + millionTimes(item) + "}", repeated("[", 10'000'000)}) {
        answer("/api/items/", body);
        expectAnErrorAndLittleMemory(vark.run({"ls", "Jobs"}));
    }
}

TEST_F(HostileVark, ABeginThatMakesNoSenseFailsTheFileAndKeepsTheQueue) {
    writeSample(vark.home(), "Take.mov", 9 << 20, 1);
    for (const std::string& body :
         {std::string(R"({"upload_id": "u", "chunk_size": 1})"),
          std::string(R"({"upload_id": "u", "chunk_size": 9223372036854775807})"),
          std::string(R"({"upload_id": "../../x?y#", "chunk_size": 8388608})"),
          R"({"upload_id": "u", "chunk_size": 8388608, "have": )" + millionTimes("-7") + "}"}) {
        SCOPED_TRACE(body.substr(0, 80));
        answer("/api/upload/begin", body);
        expectAnErrorAndLittleMemory(vark.run({"send", vark.home() / "Take.mov"}));
        EXPECT_EQ(vark.savedState("Take.mov"), "failed");
        vark.run({"clear"});
    }
}

}  // namespace
}  // namespace vark::test
