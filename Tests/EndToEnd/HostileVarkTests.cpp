#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "Tests/Support/RealVark.h"
#include "Tests/Support/SampleFiles.h"
#include "Tests/Support/ScriptedServer.h"

namespace vark::test {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

/// Far below what the answers here would take, and above what a build with sanitizers takes for itself.
constexpr std::int64_t mostMemory = 400 << 20;

std::string repeated(std::string_view text, std::size_t count) {
    std::string all;
    all.reserve(text.size() * count);
    for (std::size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

/// `count` times `element` with commas between them.
std::string listOf(std::string_view element, std::size_t count) {
    std::string all = repeated(std::string(element) + ",", count);
    all.pop_back();
    return "[" + all + "]";
}

bool writeAGibibyte(Conversation& conversation) {
    conversation.write(
        "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 1073741824\r\n\r\n");
    const std::string piece = R"({"email": ")" + std::string((1 << 20) - 11, 'a');
    bool isTaken = true;
    for (int i = 0; i < 1024 && isTaken; ++i)
        isTaken = conversation.write(piece);
    return isTaken;
}

/// A vark that answers as it should, but for what a test has put in its mouth.
class HostileVark : public testing::Test {
  protected:
    using Answer = std::function<bool(Conversation&)>;

    void SetUp() override {
        std::string url = server.url("").text();
        Finished connected =
            vark.run({"connect", url, "--token-file", vark.write("token", "t0ken\n").string(), "--ca-file",
                      authority.file()});
        ASSERT_EQ(connected.exit, exitCode(0)) << connected.errors;
    }

    static Answer body(std::string text, int status = 200) {
        return [text = std::move(text), status](Conversation& conversation) {
            return conversation.answer(status, text);
        };
    }

    /// Any target that holds the text; the longest text counts.
    void answerTo(const std::string& target, Answer answer) {
        std::lock_guard guard(lock_);
        answers_[target] = std::move(answer);
    }

    void expectAnErrorAndLittleMemory(const Finished& run) const {
        RecordProperty("megabytes", std::to_string(run.peakMemory >> 20));
        RecordProperty("said", run.errors + run.output);
        EXPECT_EQ(run.exit, exitCode(1)) << run.output << run.errors;
        EXPECT_NE(run.errors, "");
        EXPECT_THAT(run.errors, Not(HasSubstr("terminate")));
        EXPECT_LT(run.errors.size(), 4096U);
        EXPECT_LT(run.peakMemory, mostMemory);
    }

    RealVark vark;

  private:
    void converse(Conversation& conversation) {
        while (std::optional<RequestHead> head = conversation.readHead()) {
            std::string length = head->header("Content-Length").value_or("0");
            conversation.readBody(std::stoul(length));
            if (!answerFor(head->target)(conversation)) return;
        }
    }

    Answer answerFor(const std::string& target) {
        std::lock_guard guard(lock_);
        const std::pair<const std::string, Answer>* best = nullptr;
        for (const auto& known : answers_) {
            bool isMeant = target.find(known.first) != std::string::npos;
            if (isMeant && (best == nullptr || known.first.size() > best->first.size())) best = &known;
        }
        return best == nullptr ? body(R"({"error": "There is no such thing."})", 404) : best->second;
    }

    std::mutex lock_;
    std::map<std::string, Answer> answers_ = {
        {"/api/whoami", body(R"({"email": "a@vark.example", "client": "Acme", "level": 5})")},
        {"/api/item", body(R"({"id": 5, "path": "Jobs", "name": "Jobs", "is_dir": true})")},
    };
    TestAuthority authority;
    ScriptedServer server{authority, [this](Conversation& conversation) { converse(conversation); }};
};

TEST_F(HostileVark, AnAnswerOfAGibibyteIsCutOff) {
    answerTo("/api/whoami", writeAGibibyte);
    Finished asked = vark.run({"whoami"});
    expectAnErrorAndLittleMemory(asked);
    EXPECT_THAT(asked.errors, HasSubstr("longer than expected"));
}

struct Nonsense {
    const char* name;
    std::string (*body)();
};

class HostileList : public HostileVark, public testing::WithParamInterface<Nonsense> {};

TEST_P(HostileList, IsAnErrorAndNotACrash) {
    answerTo("/api/items/", body(GetParam().body()));
    Finished listed = vark.run({"ls", "Jobs"});
    expectAnErrorAndLittleMemory(listed);
    EXPECT_THAT(listed.errors, AnyOf(HasSubstr("Unexpected answer"), HasSubstr("longer than expected")));
}

INSTANTIATE_TEST_SUITE_P(
    EndToEnd, HostileList,
    testing::Values(
        Nonsense{"AMillionItems", [] { return R"({"items": )" + listOf(R"({"id":1})", 1'000'000) + "}"; }},
        Nonsense{"AMillionItemsWithAllTheirFields",
                 [] {
                     std::string item =
                         R"({"id":1,"path":"Jobs/a","name":"a","parent":0,"size":1,"is_dir":false})";
                     return R"({"items": )" + listOf(item, 1'000'000) + "}";
                 }},
        Nonsense{"DeepNesting", [] { return repeated("[", 10'000'000); }},
        Nonsense{"DeepNestingWhereNobodyLooks",
                 [] { return R"({"items": [], "more": )" + repeated("{\"a\":", 100'000); }},
        Nonsense{"NumberOutOfRange",
                 [] { return std::string(R"({"items": [{"id": 99999999999999999999999}]})"); }},
        Nonsense{"NumberThatIsNotWhole", [] { return std::string(R"({"items": [{"id": 1e400}]})"); }}),
    [](const auto& param) { return std::string(param.param.name); });

class HostileBegin : public HostileVark, public testing::WithParamInterface<Nonsense> {};

TEST_P(HostileBegin, FailsTheFileAndKeepsTheQueue) {
    answerTo("/api/upload/begin", body(GetParam().body()));
    writeSample(vark.home(), "Take.mov", 64 << 20, 1);
    Finished sent = vark.run({"send", (vark.home() / "Take.mov").string()});
    expectAnErrorAndLittleMemory(sent);
    EXPECT_EQ(vark.savedState("Take.mov"), "failed");
}

INSTANTIATE_TEST_SUITE_P(
    EndToEnd, HostileBegin,
    testing::Values(
        Nonsense{"ChunksOfOneByte", [] { return std::string(R"({"upload_id": "u", "chunk_size": 1})"); }},
        Nonsense{"OneEndlessChunk",
                 [] { return std::string(R"({"upload_id": "u", "chunk_size": 9223372036854775807})"); }},
        Nonsense{"NoChunkSize", [] { return std::string(R"({"upload_id": "u", "chunk_size": -5})"); }},
        Nonsense{"AMillionChunksThatItHas",
                 [] {
                     return R"({"upload_id": "u", "chunk_size": 8388608, "have": )" +
                            listOf("-7", 1'000'000) + "}";
                 }},
        Nonsense{"AnUploadThatLeadsElsewhere",
                 [] { return std::string(R"({"upload_id": "../../x?y#", "chunk_size": 8388608})"); }},
        Nonsense{"AChunkAddressThatIsNone",
                 [] {
                     return std::string(
                         R"({"upload_id": "u", "chunk_size": 8388608, "chunk_url": "file:///etc"})");
                 }}),
    [](const auto& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace vark::test
