#include "Tests/Support/APIWorld.h"

#include <fmt/format.h>

namespace vark::test {
namespace {

using API = HTTPVarkAPI&;
using std::ranges::size;

class Endpoints : public APIWorld {};

// What a call came to, as one text, so that all can stand in one table.
Task<std::string> told(Task<void> call) {
    co_await std::move(call);
    co_return "done";
}
template <class T, class Part = std::identity>
Task<std::string> told(Task<T> call, Part part = {}) {
    const T value = co_await std::move(call);
    co_return fmt::format("{}", std::invoke(part, value));
}

Task<std::string> poll(API api) {
    const auto state = [](const DevicePoll& poll) {
        const char* const states[] = {"connected", "pending",   "refused",
                                      "expired",   "slow down", "unreachable"};
        return states[poll.which().index()];
    };
    return told(api.pollDeviceSignIn("n 1"), state);
}

struct Endpoint {
    Task<std::string> (*call)(HTTPVarkAPI&);
    std::string request;
    std::string sent;
    std::vector<int> accepted;
    std::string body;
    std::string result;
    /// What a body that cannot be read comes to, where the status alone decides.
    std::optional<std::string> otherwise = std::nullopt;
};

// clang-format off
const Endpoint endpoints[] = {
    {[](API api) { return told(api.whoami(), &WhoAmI::email); }, "GET /api/whoami", "", {200}, R"({"email":"a@b"})", "a@b"},
    {[](API api) { return told(api.folders("Jobs/Zoë & 1"), size); }, "GET /api/folders?path=Jobs%2FZo%C3%AB%20%26%201", "", {200},
     R"({"folders":["Jobs",{"name":"Old","area":"archive"}]})", "2"},
    {[](API api) { return told(api.item(12), &VarkItem::name); }, "GET /api/item/12", "", {200}, R"({"id":12,"name":"a"})", "a"},
    {[](API api) { return told(api.item("a/b+c"), &VarkItem::id); }, "GET /api/item?path=a%2Fb%2Bc", "", {200}, R"({"id":12})", "12"},
    {[](API api) { return told(api.child(-3, "Zoë/ü&~1"), [](auto& child) { return child.item() != nullptr; }); },
     "GET /api/child?parent=-3&name=Zo%C3%AB%2F%C3%BC%26~1", "", {200, 404, 405}, R"({"id":1,"name":"Zoë"})", "true", "false"},
    {[](API api) { return told(api.children(5, "", 200, false), &VarkPage::more); },
     "GET /api/items/5?limit=200", "", {200}, R"({"items":[]})", "false"},
    {[](API api) { return told(api.children(5, "1|2", 200, true), &VarkPage::cursor); },
     "GET /api/items/5?limit=200&cursor=1%7C2&ahead=1", "", {200}, R"({"items":[],"cursor":"c"})", "c"},
    {[](API api) { return told(api.changes(0, std::nullopt, 500), &VarkChanges::cursor); },
     "GET /api/changes?under=0&limit=500", "", {200}, "{}", ""},
    {[](API api) { return told(api.changes(7, "", 500), &VarkChanges::cursor); },
     "GET /api/changes?under=7&limit=500&since=", "", {200}, R"({"cursor":"c"})", "c"},
    {[](API api) { return told(api.binned("Jobs/é +?"), [](auto& item) { return item.has_value(); }); },
     "GET /api/binned?path=Jobs/%C3%A9%20%2B%3F", "", {200, 404, 405}, R"({"binned":true})", "true", "false"},
    {[](API api) { return told(api.binned("a"), [](auto& item) { return item.has_value(); }); },
     "GET /api/binned?path=a", "", {200}, R"({"binned":false,"id":4})", "false", "false"},
    {[](API api) { return told(api.createFolder("a/b")); },
     "POST /api/folders", R"({"path":"a/b"})", {200, 201}, R"({"path":"a/B"})", "a/B", "a/b"},
    {[](API api) { return told(api.rename("a/b", "c")); },
     "POST /api/files/rename", R"({"path":"a/b","new_name":"c"})", {200, 202}, R"({"path":"a/c"})", "a/c", "a/b"},
    {[](API api) { return told(api.move("a/b", "d")); },
     "POST /api/files/move", R"({"path":"a/b","to_folder":"d"})", {200, 202}, R"({"path":"d/b"})", "d/b", "a/b"},
    {[](API api) { return told(api.bin("a/b")); },
     "DELETE /api/files?path=a%2Fb", "", {200, 202, 204}, R"({"bin_path":"Bin/b"})", "Bin/b", ""},
    {[](API api) { return told(api.tags(), size); }, "GET /api/tags", "", {200}, R"({"tags":[{"name":"b"},{"name":"a"}]})", "2"},
    {[](API api) { return told(api.tagFiles({"a", "b"}, {"t"})); },
     "POST /api/files/tag", R"({"paths":["a","b"],"tags":["t"],"create":true})", {200, 201}, R"({"n":2})", "2", "0"},
    {[](API api) { return told(api.ingestBegin("CARD", "Jobs/1", 3, 4'000'000'000, true), &IngestStart::fits); },
     "POST /api/ingest", R"({"drive":"CARD","destination":"Jobs/1","files":3,"bytes":4000000000,"email_me":true})", {200, 201},
     R"({"id":3,"fits":false})", "false"},
    {[](API api) { return told(api.ingestFinish(3, {{"s", "p", 1, "w"}}, {"l"}, {})); }, "POST /api/ingest/3/finish",
     R"({"skipped":[{"source":"s","path":"p","size":1,"why":"w"}],"left_out":["l"],"not_sent":[]})", {200}, "", "done", "done"},
    {[](API api) { return told(api.sendDiagnostics({.appVersion = "1", .logs = {{"transfer", "a\nb"}}})); }, "POST /api/diagnostics",
     R"({"app_version":"1","os_version":"","logs":{"transfer":"a\nb"},"snapshot":{"permissions":{},"queued":0,"problems":0,)"
     R"("problem_reasons":[],"waiting":0,"finder":"","lan_nodes":0,"updater":""}})", {200, 201}, "", "done", "done"},
    {[](API api) { return told(api.createShare({"a"}), &VarkShare::url); },
     "POST /api/shares", R"({"paths":["a"],"mode":"link"})", {200, 201}, R"({"url":"u"})", "u"},
    {[](API api) { return told(api.createShare({{"a"}, ShareAudience::domain, ShareExpiry::week, "Hi"}), &VarkShare::url); },
     "POST /api/shares", R"({"paths":["a"],"mode":"domain","expiry":"7d","message":"Hi"})", {200, 201}, R"({"url":"u"})", "u"},
    {[](API api) { return told(api.findJobs("Zoë 1"), size); }, "GET /api/jobs?q=Zo%C3%AB%201", "", {200}, R"({"jobs":[{"id":1}]})", "1"},
    {[](API api) { return told(api.findJobs("x"), size); }, "GET /api/jobs?q=x", "", {200}, "{}", "0"},
    {[](API api) { return told(api.fileAgainstJob({"a", "b"}, 9)); },
     "POST /api/jobs/apply", R"({"paths":["a","b"],"job_id":9})", {200, 201}, R"({"applied":1})", "1", "2"},
    {[](API api) { return told(api.finish("u1")); }, "POST /api/upload/u1/finish", "", {200, 202}, R"({"path":"Jobs/a"})", "Jobs/a", ""},
    {[](API api) { return told(api.status("u1"), &UploadStatus::state); }, "GET /api/upload/u1", "", {200}, R"({"state":"done"})", "done"},
    {[](API api) { return told(api.cancel("u1")); }, "DELETE /api/upload/u1", "", {200, 204, 404}, "", "done", "done"},
    {[](API api) { return told(api.claim("1234", "Studio"), &DeviceClaim::token); },
     "POST /api/device/claim", R"({"code":"1234","device_name":"Studio"})", {200}, R"({"token":"t"})", "t"},
    {[](API api) { return told(api.beginDeviceSignIn("Studio"), &DeviceBegin::nonce); },
     "POST /api/device/begin", R"({"device_name":"Studio"})", {200, 201}, R"({"nonce":"n","url":"u","expires_in":600})", "n"},
    {poll, "GET /api/device/poll/n%201", "", {200}, R"({"state":"connected","token":"t","client":"A"})", "connected"},
    {poll, "GET /api/device/poll/n%201", "", {200}, R"({"state":"refused"})", "refused"},
    {poll, "GET /api/device/poll/n%201", "", {200}, R"({"state":"expired"})", "expired"},
    {poll, "GET /api/device/poll/n%201", "", {200}, R"({"state":"another"})", "pending"},
    {poll, "GET /api/device/poll/n%201", "", {404, 410}, "", "expired", "expired"},
    {poll, "GET /api/device/poll/n%201", "", {429}, "", "slow down", "slow down"},
};
// clang-format on

TEST_F(Endpoints, AskAsTheVarkExpectsAndReadItsAnswer) {
    for (const Endpoint& endpoint : endpoints) {
        SCOPED_TRACE(endpoint.request);
        session.queue(endpoint.accepted.front(), endpoint.body);
        EXPECT_EQ(loop.run(endpoint.call(api)), endpoint.result);

        const HTTPRequest& request = session.requests.back();
        EXPECT_EQ(request.method + " " + request.url.requestTarget(), endpoint.request);
        EXPECT_EQ(request.body, endpoint.sent);
        EXPECT_EQ(headerOf(request, "Content-Type"), endpoint.sent.empty() ? "" : "application/json");
        const bool isBarePost = request.method == "POST" && endpoint.sent.empty();
        EXPECT_EQ(headerOf(request, "Content-Length"), isBarePost ? "0" : "");
        const bool signsIn = request.url.path().starts_with("/api/device/");
        EXPECT_EQ(headerOf(request, "Authorization"), signsIn ? "" : "Bearer t0ken");
    }
}

TEST_F(Endpoints, EveryRequestNamesTheClientAndTheProcess) {
    const std::vector<HTTPHeader> names = {{"User-Agent", "VarkTransfer/1.0 (macOS)"},
                                           {"X-Vark-Via", "Finder"}};
    EXPECT_EQ(session.settings.headers, names);
}

TEST_F(Endpoints, TakeTheAnswersThatAreTheirsAndFailOnAllOthers) {
    for (const Endpoint& endpoint : endpoints) {
        SCOPED_TRACE(endpoint.request);
        const auto failureAt = [&](int status, const std::string& body) {
            session.queue(status, body);
            return failureOf(endpoint.call(api));
        };
        for (const int status : endpoint.accepted)
            EXPECT_EQ(failureAt(status, endpoint.body), std::nullopt) << status;
        for (const int status : {302, 403, 500})
            EXPECT_EQ(failureAt(status, endpoint.body), VarkAPIError::server(status));
        EXPECT_EQ(failureAt(401, R"({"error":"Gone","sign_out":true})"),
                  VarkAPIError::unauthorized("Gone", "VARK-410"));

        session.queue(endpoint.accepted.front(), "<html>");
        if (endpoint.otherwise) {
            EXPECT_EQ(loop.run(endpoint.call(api)), *endpoint.otherwise);
        } else {
            EXPECT_THROW(loop.run(endpoint.call(api)), VarkAPIError);
        }
    }
}

TEST_F(Endpoints, SharesAreSupportedUnlessThereIsNoSuchRoute) {
    for (const int status : {400, 403, 404, 405, 500}) {
        session.queue(status);
        EXPECT_EQ(loop.run(api.sharesSupported()), status != 404 && status != 405) << status;
    }
    EXPECT_EQ(session.requests.back().body, R"({"paths":[]})") << "nothing is shared by asking";
}

TEST_F(Endpoints, WithoutATokenNothingGoesOutButTheSignIn) {
    token = std::nullopt;
    for (const Endpoint& endpoint : endpoints) {
        session.script = [&endpoint](const HTTPRequest&) { return answer(200, endpoint.body); };
        const bool signsIn = endpoint.request.contains(" /api/device/");
        session.requests.clear();
        EXPECT_EQ(failureOf(endpoint.call(api)) == VarkAPIError::notConnected(), !signsIn)
            << endpoint.request;
        EXPECT_EQ(session.requests.size(), signsIn ? 1U : 0U);
    }
    token = "new";
    loop.run(api.cancel("u"));
    EXPECT_EQ(headerOf(session.requests.back(), "Authorization"), "Bearer new") << "it is asked for afresh";
}

TEST_F(Endpoints, ACancelledCallIsNeverAFailureOfTheNetwork) {
    const HTTPError lost(HTTPError::connectionLost, "cancelled");
    for (const ScriptedAnswer& ending : {hanging(), hanging(lost)}) {
        session.queue(ending);
        const TaskHandle<WhoAmI> call = loop.start(api.whoami());
        loop.settle();
        call.cancel();
        loop.settle();
        EXPECT_THROW(call.result(), CancellationError);
    }
    session.queue(failure(HTTPError::cannotFindHost));
    EXPECT_EQ(failureOf(api.whoami()), VarkAPIError::transport("Could not reach the vark."));
    session.queue(failure(HTTPError::timedOut));
    EXPECT_EQ(loop.run(poll(api)), "unreachable") << "that does not end a sign-in";
}

}  // namespace
}  // namespace vark::test
