#include "Tests/Support/APIWorld.h"

namespace vark::test {
namespace {

using E = VarkAPIError;

class UploadEndpoints : public APIWorld {};

TEST_F(UploadEndpoints, BeginSendsOnlyWhatHasAValue) {
    session.script = [](const HTTPRequest&) { return answer(200, R"({"exists":true})"); };
    loop.run(api.begin("Jobs/a", 5'000'000'000, "ab", 1700000000.5, false));
    EXPECT_EQ(session.requests.back().url.text(), "https://vark.example/api/upload/begin");
    EXPECT_EQ(session.requests.back().body,
              R"({"path":"Jobs/a","size":5000000000,"sha256":"ab","mtime":1700000000.5})");
    loop.run(api.begin("a", 0, "ab", 0.25, true, 7, "card/a"));
    EXPECT_EQ(session.requests.back().body, R"({"path":"a","size":0,"sha256":"ab","mtime":0.25,)"
                                            R"("replace":true,"ingest_id":7,"source":"card/a"})");
}

TEST_F(UploadEndpoints, BeginHasThreeOutcomesAndFailsOnAnythingElse) {
    using B = BeginResult;
    struct Case {
        int status;
        std::string body;
        std::optional<B> outcome;
        std::optional<E> failure = std::nullopt;
    };
    const E unreadable = E::badResponse("begin");
    const E neither = E::badResponse("begin returned neither an upload nor exists");
    const Case cases[] = {
        {200, R"({"exists":true,"upload_id":"x"})", B::Exists{}},
        {200, R"({"upload_id":"x","chunk_size":8})", B::Start{"x", 8, {}}},
        {200, R"({"upload_id":"x","chunk_size":8,"have":[2,0],"exists":false})", B::Start{"x", 8, {2, 0}}},
        {409, R"({"conflict":false,"size":3,"mtime":4.5})", B::Conflict{3, 4.5}},
        {409, "<html>", B::Conflict{}},
        {200, "", {}, unreadable},
        {200, R"({"upload_id":"x","chunk_size":8,"have":"all"})", {}, unreadable},
        {200, R"({"upload_id":"x","chunk_size":1e30})", {}, unreadable},
        {200, R"({"upload_id":"x","chunk_size":0})", {}, neither},
        {200, R"({"chunk_size":8})", {}, neither},
        {201, R"({"exists":true})", {}, E::server(201)},
        {507, R"({"error":"Full."})", {}, E::server(507, "Full.")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.status) + " " + c.body);
        session.queue(c.status, c.body);
        std::optional<B> outcome;
        try {
            outcome = loop.run(api.begin("a", 1, "ab", 0, false));
        } catch (const E& error) {
            EXPECT_EQ(error, c.failure);
        }
        EXPECT_EQ(outcome, c.outcome);
    }
}

TEST_F(UploadEndpoints, JudgeTheirStatuses) {
    struct Case {
        int status;
        /// What each comes to.
        std::optional<E> state, finish, cancel;
    };
    const auto ok = std::nullopt;
    const Case cases[] = {
        {404, E::uploadGone(), E::uploadGone(), ok},
        {409, E::server(409), E::uploadGone(), E::server(409)},
        {410, E::uploadGone(), E::uploadGone(), E::server(410)},
    };
    for (const Case& c : cases) {
        session.script = [&c](const HTTPRequest&) { return answer(c.status); };
        EXPECT_EQ(failureOf(api.status("u")), c.state) << c.status;
        EXPECT_EQ(failureOf(api.finish("u")), c.finish) << c.status;
        EXPECT_EQ(failureOf(api.cancel("u")), c.cancel) << c.status;
    }
}

TEST_F(UploadEndpoints, ReadWhatBecameOfTheFile) {
    session.queue(200, R"({"state":"failed","received":1,"total":2,"error":""})");
    EXPECT_EQ(loop.run(api.status("u")), (UploadStatus{"failed", 1, 2, std::nullopt}));
    session.queue(200, R"({"received":1})");
    EXPECT_EQ(failureOf(api.status("u")), E::badResponse("upload status")) << "it is not done";
}

}  // namespace
}  // namespace vark::test
