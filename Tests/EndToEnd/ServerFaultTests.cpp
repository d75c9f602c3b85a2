#include <boost/json/serialize.hpp>

#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

using testing::HasSubstr;

struct Trouble {
    const char* name;
    /// As the box takes them. The waits before another try are real, so each is a short one.
    std::vector<const char*> faults;
};

class PassingTrouble : public EndToEndTest, public testing::WithParamInterface<Trouble> {};

TEST_P(PassingTrouble, DoesNotKeepAFileFromLanding) {
    for (const char* json : GetParam().faults)
        fault(json);
    std::vector<SampleFile> files;
    for (int i = 0; i < 4; ++i)
        files.push_back(file("Shoot/Take " + std::to_string(i), 2 * chunkSize + 1000));

    Finished sent = vark.run({"send", (vark.home() / "Shoot").string()});

    expectExit(sent, 0);
    EXPECT_THAT(vark.diary(), HasSubstr("trying again in 2 s"));
    for (const SampleFile& file : files)
        expectHeld(file);
    for (const boost::json::value& fault : box.faults())
        EXPECT_GE(fault.at("fired").to_number<int>(), 1) << boost::json::serialize(fault);
}

INSTANTIATE_TEST_SUITE_P(
    EndToEnd, PassingTrouble,
    testing::Values(
        Trouble{"StormOfServerErrors",
                {R"({"kind": "status", "status": 500, "path": "/api/upload/begin", "count": 4})",
                 R"({"kind": "status", "status": 503, "path_contains": "/finish", "count": 2})",
                 R"({"kind": "status", "status": 502, "listener": "chunk", "count": 4})"}},
        Trouble{"StormOfTooManyRequests",
                {R"({"kind": "status", "status": 429, "path": "/api/upload/begin", "count": 2})",
                 R"({"kind": "status", "status": 429, "listener": "chunk", "count": 6, "after_bytes": 1000})",
                 R"({"kind": "status", "status": 408, "method": "GET", "count": 2})"}},
        Trouble{"ResetInTheMiddleOfAChunk",
                {R"({"kind": "reset", "listener": "chunk", "count": 3, "after_bytes": 100000})"}},
        Trouble{"ResetOfCalls",
                {R"({"kind": "reset", "path": "/api/upload/begin", "count": 1})",
                 R"({"kind": "reset", "path_contains": "/finish", "count": 1})"}},
        Trouble{"AnswersThatBreakOffAfterTheDeed",
                {R"({"kind": "short_body", "path": "/api/upload/begin", "count": 1})",
                 R"({"kind": "short_body", "listener": "chunk", "count": 2})",
                 R"({"kind": "short_body", "path_contains": "/finish", "count": 1})"}}),
    [](const auto& param) { return std::string(param.param.name); });

struct Loss {
    const char* name;
    const char* fault;
};

class LostUpload : public EndToEndTest, public testing::WithParamInterface<Loss> {
  protected:
    void lose(int times) {
        boost::json::object loss = boost::json::parse(GetParam().fault).as_object();
        loss["kind"] = "lose_upload";
        loss["count"] = times;
        box.fault(loss);
    }
};

TEST_P(LostUpload, IsBegunAgainTwice) {
    lose(2);
    SampleFile file = this->file("Take.mov", chunkSize);
    expectExit(send(file), 0);
    expectHeld(file);
    EXPECT_EQ(box.count("POST", "/api/upload/begin"), 3);
}

TEST_P(LostUpload, IsGivenUpAtTheThirdTimeAndTakenUpByARetry) {
    lose(3);
    SampleFile file = this->file("Take.mov", chunkSize);
    Finished sent = send(file);
    expectExit(sent, 1);
    EXPECT_THAT(sent.output + sent.errors, HasSubstr("The vark kept losing this upload."));
    EXPECT_EQ(vark.savedState("Take.mov"), "failed");

    expectExit(vark.run({"retry"}), 0);
    expectExit(vark.run({"send"}), 0);
    expectHeld(file);
}

INSTANTIATE_TEST_SUITE_P(EndToEnd, LostUpload,
                         testing::Values(Loss{"WhileSending", R"({"method": "PUT"})"},
                                         Loss{"WhileFinishing", R"({"path_contains": "/finish"})"}),
                         [](const auto& param) { return std::string(param.param.name); });

class FailedCheck : public EndToEndTest {};

TEST_F(FailedCheck, FailsTheFileWithTheVarksReasonUntilARetry) {
    fault(R"({"kind": "fail_check", "path_contains": "/finish", "count": 1})");
    SampleFile file = this->file("Take.mov", 3 * chunkSize);
    Finished sent = send(file);
    expectExit(sent, 1);
    EXPECT_THAT(sent.output + sent.errors, HasSubstr("The vark could not check this file after it landed."));
    EXPECT_TRUE(box.files().empty());

    expectExit(vark.run({"retry"}), 0);
    expectExit(vark.run({"send"}), 0);
    expectHeld(file);
}

class ChunksThroughTheApplication : public EndToEndTest {
  protected:
    ChunksThroughTheApplication() : EndToEndTest({.chunkSize = chunkSize, .givesChunkURL = false}) {}
};

TEST_F(ChunksThroughTheApplication, SurviveBeingRefusedThere) {
    fault(R"({"kind": "wrong_route", "method": "PUT", "count": 1})");
    SampleFile file = this->file("Take.mov", 2 * chunkSize);
    expectExit(send(file), 0);
    expectHeld(file);
    EXPECT_THAT(vark.diary(), HasSubstr("did not get through"));
}

}  // namespace
}  // namespace vark::test
