#include "Tests/Support/APIWorld.h"

namespace vark {
namespace {

using test::APIWorld;

class UploadEndpoints : public APIWorld {};

TEST_F(UploadEndpoints, BeginSendsOnlyWhatHasAValue) {
    session.script = [](const HTTPRequest&) { return test::answer(200, R"({"exists":true})"); };
    loop.run(api.begin("Jobs/a", 5'000'000'000, "ab", 1700000000.5, false));
    EXPECT_EQ(session.requests.back().method, "POST");
    EXPECT_EQ(session.requests.back().url.text(), "https://vark.example/api/upload/begin");
    EXPECT_EQ(session.requests.back().body,
              R"({"path":"Jobs/a","size":5000000000,"sha256":"ab","mtime":1700000000.5})");
    loop.run(api.begin("a", 0, "ab", 0.25, true, 7, "card/a"));
    EXPECT_EQ(
        session.requests.back().body,
        R"({"path":"a","size":0,"sha256":"ab","mtime":0.25,"replace":true,"ingest_id":7,"source":"card/a"})");
}

TEST_F(UploadEndpoints, BeginHasThreeOutcomes) {
    struct Case {
        int status;
        std::string body;
        BeginResult expected;
    };
    using B = BeginResult;
    const Case cases[] = {
        {200, R"({"exists":true,"upload_id":"x"})", B::Exists{}},
        {200, R"({"upload_id":"x","chunk_size":8})", B::Start{"x", 8, {}}},
        {200, R"({"upload_id":"x","chunk_size":8,"have":[2,0],"exists":false})", B::Start{"x", 8, {2, 0}}},
        {409, R"({"conflict":false,"size":3,"mtime":4.5})", B::Conflict{3, 4.5}},
        {409, R"({"conflict":true,"error":"Taken"})", B::Conflict{}},
        {409, "", B::Conflict{}},
        {409, R"({"size":"big"})", B::Conflict{}},
    };
    for (const Case& c : cases) {
        session.queue(c.status, c.body);
        EXPECT_EQ(loop.run(api.begin("a", 1, "ab", 0, false)), c.expected) << c.status << " " << c.body;
    }
}

TEST_F(UploadEndpoints, BeginFailsOnAnythingElse) {
    struct Case {
        int status;
        std::string body;
        VarkAPIError expected;
    };
    const VarkAPIError neither = VarkAPIError::badResponse("begin returned neither an upload nor exists");
    const Case cases[] = {
        {200, "", VarkAPIError::badResponse("begin")},
        {200, R"({"upload_id":"x","chunk_size":8,"have":"all"})", VarkAPIError::badResponse("begin")},
        {200, R"({"upload_id":"x","chunk_size":1e30})", VarkAPIError::badResponse("begin")},
        {200, "{}", neither},
        {200, R"({"upload_id":"x","chunk_size":0})", neither},
        {200, R"({"upload_id":"x"})", neither},
        {200, R"({"chunk_size":8})", neither},
        {201, R"({"exists":true})", VarkAPIError::server(201)},
        {404, "", VarkAPIError::server(404)},
        {507, R"({"error":"Full."})", VarkAPIError::server(507, "Full.")},
    };
    for (const Case& c : cases) {
        session.queue(c.status, c.body);
        EXPECT_EQ(failureOf(api.begin("a", 1, "ab", 0, false)), c.expected) << c.status << " " << c.body;
    }
}

TEST_F(UploadEndpoints, JudgeTheirStatuses) {
    struct Case {
        int status;
        /// What status, finish and cancel come to.
        std::optional<VarkAPIError> state, finish, cancel;
    };
    const auto ok = std::nullopt;
    const VarkAPIError gone = VarkAPIError::uploadGone();
    const auto server = [](int status) { return VarkAPIError::server(status); };
    const Case cases[] = {
        {200, ok, ok, ok},
        {202, server(202), ok, ok},
        {204, server(204), server(204), ok},
        {404, gone, gone, ok},
        {409, server(409), gone, server(409)},
        {410, gone, gone, server(410)},
        {500, server(500), server(500), server(500)},
    };
    for (const Case& c : cases) {
        session.script = [&c](const HTTPRequest&) { return test::answer(c.status, R"({"state":"done"})"); };
        EXPECT_EQ(failureOf(api.status("u")), c.state) << c.status;
        EXPECT_EQ(failureOf(api.finish("u")), c.finish) << c.status;
        EXPECT_EQ(failureOf(api.cancel("u")), c.cancel) << c.status;
    }
    std::vector<std::string> calls;
    for (std::size_t i = 0; i < 3; ++i)
        calls.push_back(session.requests[i].method + " " + session.requests[i].url.path());
    EXPECT_EQ(calls, (std::vector<std::string>{"GET /api/upload/u", "POST /api/upload/u/finish",
                                               "DELETE /api/upload/u"}));
}

TEST_F(UploadEndpoints, ReadWhatTheVarkSaysAtTheEnd) {
    session.queue(200, R"({"state":"failed","received":1,"total":2,"error":""})");
    EXPECT_EQ(loop.run(api.status("u")), (UploadStatus{"failed", 1, 2, std::nullopt}));
    session.queue(200, R"({"received":1})");
    EXPECT_EQ(failureOf(api.status("u")), VarkAPIError::badResponse("upload status"));

    const std::tuple<int, std::string, std::string> finishes[] = {
        {200, R"({"path":"Jobs/a"})", "Jobs/a"}, {202, "", ""}, {200, R"({"path":1})", ""}, {200, "{}", ""}};
    for (const auto& [status, body, path] : finishes) {
        session.queue(status, body);
        EXPECT_EQ(loop.run(api.finish("u")), path) << body;
    }
}

}  // namespace
}  // namespace vark
