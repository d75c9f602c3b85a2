#include "Tests/Support/APIWorld.h"

#include <algorithm>

namespace vark {
namespace {

using test::answer;
using test::APIWorld;
using test::failure;
using test::hanging;
using test::headerOf;

class Endpoints : public APIWorld {};

// One text for whatever an operation answers, so that all can stand in one table.
std::string tell(const std::string& text) {
    return text;
}
std::string tell(std::int64_t number) {
    return std::to_string(number);
}
std::string tell(const WhoAmI& who) {
    return who.email;
}
std::string tell(const VarkItem& item) {
    return item.name;
}
std::string tell(const ChildAnswer& child) {
    if (child.item() != nullptr) return child.item()->name;
    return child.isNone() ? "none" : "no route";
}
std::string tell(const std::optional<BinnedItem>& item) {
    return item ? item->originalPath : "nothing";
}
std::string tell(const VarkPage& page) {
    return page.cursor;
}
std::string tell(const VarkChanges& changes) {
    return changes.cursor;
}
std::string tell(const VarkFolder& folder) {
    return folder.name;
}
std::string tell(const VarkShare& share) {
    return share.url;
}
std::string tell(const VarkJob& job) {
    return job.ref;
}
std::string tell(const DeviceClaim& claim) {
    return claim.token;
}
std::string tell(const DeviceBegin& begin) {
    return begin.nonce;
}
std::string tell(const IngestStart& start) {
    return start.free ? "free" : "unknown";
}
template <class T>
std::string tell(const std::vector<T>& list) {
    std::string all;
    for (const T& element : list)
        all += tell(element) + ";";
    return all;
}

template <class T>
Task<std::string> told(Task<T> task) {
    if constexpr (std::is_void_v<T>) {
        co_await std::move(task);
        co_return "done";
    } else {
        const T value = co_await std::move(task);
        co_return tell(value);
    }
}

struct Endpoint {
    Task<std::string> (*call)(HTTPVarkAPI&);
    std::string method;
    std::string target;
    std::string sent;
    std::vector<int> accepted;
    std::string body;
    std::string result;
    /// What a body that cannot be read comes to: a result, or a failure that begins with "!".
    std::string onNonsense;
};

const std::vector<Endpoint>& endpoints() {
    static const std::vector<Endpoint> all = {
        {[](HTTPVarkAPI& api) { return told(api.whoami()); },
         "GET",
         "/api/whoami",
         "",
         {200},
         R"({"email":"a@b"})",
         "a@b",
         "!whoami"},
        {[](HTTPVarkAPI& api) { return told(api.folders("Jobs/Zoë & 1")); },
         "GET",
         "/api/folders?path=Jobs%2FZo%C3%AB%20%26%201",
         "",
         {200},
         R"({"folders":["Jobs",{"name":"Old","area":"archive"}]})",
         "Jobs;Old;",
         "!folders list"},
        {[](HTTPVarkAPI& api) { return told(api.item(12)); },
         "GET",
         "/api/item/12",
         "",
         {200},
         R"({"id":12,"name":"a"})",
         "a",
         "!item 12"},
        {[](HTTPVarkAPI& api) { return told(api.item("a/b+c")); },
         "GET",
         "/api/item?path=a%2Fb%2Bc",
         "",
         {200},
         R"({"id":12,"name":"b"})",
         "b",
         "!item at a/b+c"},
        {[](HTTPVarkAPI& api) { return told(api.child(-3, "Zoë/ü&~1")); },
         "GET",
         "/api/child?parent=-3&name=Zo%C3%AB%2F%C3%BC%26~1",
         "",
         {200, 404, 405},
         R"({"id":1,"name":"Zoë"})",
         "Zoë",
         "no route"},
        {[](HTTPVarkAPI& api) { return told(api.children(5, "", 200, false)); },
         "GET",
         "/api/items/5?limit=200",
         "",
         {200},
         R"({"items":[]})",
         "",
         "!the children of 5"},
        {[](HTTPVarkAPI& api) { return told(api.children(5, "1|2", 200, true)); },
         "GET",
         "/api/items/5?limit=200&cursor=1%7C2&ahead=1",
         "",
         {200},
         R"({"items":[],"cursor":"c"})",
         "c",
         "!the children of 5"},
        {[](HTTPVarkAPI& api) { return told(api.changes(0, std::nullopt, 500)); },
         "GET",
         "/api/changes?under=0&limit=500",
         "",
         {200},
         "{}",
         "",
         "!changes"},
        {[](HTTPVarkAPI& api) { return told(api.changes(7, "", 500)); },
         "GET",
         "/api/changes?under=7&limit=500&since=",
         "",
         {200},
         R"({"cursor":"c"})",
         "c",
         "!changes"},
        {[](HTTPVarkAPI& api) { return told(api.binned("Jobs/é +?")); },
         "GET",
         "/api/binned?path=Jobs/%C3%A9%20%2B%3F",
         "",
         {200, 404, 405},
         R"({"binned":true})",
         "Jobs/é +?",
         "nothing"},
        {[](HTTPVarkAPI& api) { return told(api.createFolder("a/b")); },
         "POST",
         "/api/folders",
         R"({"path":"a/b"})",
         {200, 201},
         R"({"path":"a/B"})",
         "a/B",
         "a/b"},
        {[](HTTPVarkAPI& api) { return told(api.rename("a/b", "c")); },
         "POST",
         "/api/files/rename",
         R"({"path":"a/b","new_name":"c"})",
         {200, 202},
         R"({"path":"a/c"})",
         "a/c",
         "a/b"},
        {[](HTTPVarkAPI& api) { return told(api.move("a/b", "d")); },
         "POST",
         "/api/files/move",
         R"({"path":"a/b","to_folder":"d"})",
         {200, 202},
         R"({"path":"d/b"})",
         "d/b",
         "a/b"},
        {[](HTTPVarkAPI& api) { return told(api.bin("a/b")); },
         "DELETE",
         "/api/files?path=a%2Fb",
         "",
         {200, 201, 202, 204, 299},
         R"({"bin_path":"Bin/b"})",
         "Bin/b",
         ""},
        {[](HTTPVarkAPI& api) { return told(api.tags()); },
         "GET",
         "/api/tags",
         "",
         {200},
         R"({"tags":[{"name":"b"},{"name":"a"}]})",
         "b;a;",
         "!tags list"},
        {[](HTTPVarkAPI& api) { return told(api.tagFiles({"a", "b"}, {"t"})); },
         "POST",
         "/api/files/tag",
         R"({"paths":["a","b"],"tags":["t"],"create":true})",
         {200, 201},
         R"({"n":2})",
         "2",
         "0"},
        {[](HTTPVarkAPI& api) { return told(api.ingestBegin("CARD", "Jobs/1", 3, 4'000'000'000, true)); },
         "POST",
         "/api/ingest",
         R"({"drive":"CARD","destination":"Jobs/1","files":3,"bytes":4000000000,"email_me":true})",
         {200, 201},
         R"({"id":3,"fits":false})",
         "unknown",
         "!ingest"},
        {[](HTTPVarkAPI& api) { return told(api.ingestFinish(3, {{"s", "p", 1, "w"}}, {"l"}, {})); },
         "POST",
         "/api/ingest/3/finish",
         R"({"skipped":[{"source":"s","path":"p","size":1,"why":"w"}],"left_out":["l"],"not_sent":[]})",
         {200},
         "",
         "done",
         "done"},
        {[](HTTPVarkAPI& api) { return told(api.sendDiagnostics({})); },
         "POST",
         "/api/diagnostics",
         R"({"app_version":"","os_version":"","logs":{},"snapshot":{"permissions":{},"queued":0,"problems":0,)"
         R"("problem_reasons":[],"waiting":0,"finder":"","lan_nodes":0,"updater":""}})",
         {200, 201},
         "",
         "done",
         "done"},
        {[](HTTPVarkAPI& api) { return told(api.createShare(std::vector<std::string>{"a"})); },
         "POST",
         "/api/shares",
         R"({"paths":["a"],"mode":"link"})",
         {200, 201},
         R"({"url":"u"})",
         "u",
         "!share"},
        {[](HTTPVarkAPI& api) {
             return told(api.createShare({{"a"}, ShareAudience::domain, ShareExpiry::week, "Hi"}));
         },
         "POST",
         "/api/shares",
         R"({"paths":["a"],"mode":"domain","expiry":"7d","message":"Hi"})",
         {200, 201},
         R"({"url":"u"})",
         "u",
         "!share"},
        {[](HTTPVarkAPI& api) { return told(api.findJobs("Zoë 1")); },
         "GET",
         "/api/jobs?q=Zo%C3%AB%201",
         "",
         {200},
         R"({"jobs":[{"id":1,"ref":"J"}]})",
         "J;",
         "!jobs"},
        {[](HTTPVarkAPI& api) { return told(api.fileAgainstJob({"a", "b"}, 9)); },
         "POST",
         "/api/jobs/apply",
         R"({"paths":["a","b"],"job_id":9})",
         {200, 201},
         R"({"applied":1})",
         "1",
         "2"},
        {[](HTTPVarkAPI& api) { return told(api.claim("1234", "Studio")); },
         "POST",
         "/api/device/claim",
         R"({"code":"1234","device_name":"Studio"})",
         {200},
         R"({"token":"t"})",
         "t",
         "!claim did not return a token"},
        {[](HTTPVarkAPI& api) { return told(api.beginDeviceSignIn("Studio")); },
         "POST",
         "/api/device/begin",
         R"({"device_name":"Studio"})",
         {200, 201},
         R"({"nonce":"n","url":"u","expires_in":600})",
         "n",
         "!device begin did not return a nonce and a url"},
    };
    return all;
}

TEST_F(Endpoints, AskAsTheVarkExpectsAndReadItsAnswer) {
    for (const Endpoint& endpoint : endpoints()) {
        SCOPED_TRACE(endpoint.method + " " + endpoint.target);
        session.queue(endpoint.accepted.front(), endpoint.body);
        EXPECT_EQ(loop.run(endpoint.call(api)), endpoint.result);

        const HTTPRequest& request = session.requests.back();
        EXPECT_EQ(request.method, endpoint.method);
        EXPECT_EQ(request.url.text(), "https://vark.example" + endpoint.target);
        EXPECT_EQ(request.body, endpoint.sent);
        EXPECT_EQ(headerOf(request, "Content-Type"), endpoint.sent.empty() ? "" : "application/json");
        EXPECT_EQ(request.idleLimit, std::chrono::seconds(60));
        EXPECT_EQ(request.longestAnswer, std::size_t{32} << 20);
    }
}

TEST_F(Endpoints, TakeTheStatusesThatAreTheirsAndFailOnAllOthers) {
    for (const Endpoint& endpoint : endpoints()) {
        for (const int status : {0, 200, 201, 202, 204, 299, 302, 400, 403, 404, 405, 409, 410, 500}) {
            SCOPED_TRACE(endpoint.method + " " + endpoint.target + " " + std::to_string(status));
            session.queue(status, endpoint.body);
            const std::optional<VarkAPIError> failed = failureOf(endpoint.call(api));
            if (std::ranges::find(endpoint.accepted, status) != endpoint.accepted.end()) {
                EXPECT_EQ(failed, std::nullopt);
            } else {
                EXPECT_EQ(failed, serverErrorFor(status, endpoint.body));
            }
        }
    }
}

TEST_F(Endpoints, FailOnNonsenseOnlyWhereTheAnswerIsNeeded) {
    for (const Endpoint& endpoint : endpoints()) {
        for (const std::string& nonsense : {std::string("<html>"), std::string(), std::string(5000, '[')}) {
            SCOPED_TRACE(endpoint.method + " " + endpoint.target);
            session.queue(endpoint.accepted.front(), nonsense);
            if (endpoint.onNonsense.starts_with('!')) {
                EXPECT_EQ(failureOf(endpoint.call(api)),
                          VarkAPIError::badResponse(endpoint.onNonsense.substr(1)));
            } else {
                EXPECT_EQ(loop.run(endpoint.call(api)), endpoint.onNonsense);
            }
        }
    }
}

TEST_F(Endpoints, AnAbsentListIsNoFailureButWhereItMustBeThere) {
    session.queue(200, "{}");
    EXPECT_TRUE(loop.run(api.findJobs("x")).empty());
    session.queue(200, R"({"jobs":[{"ref":"no id"}]})");
    EXPECT_EQ(failureOf(api.findJobs("x")), VarkAPIError::badResponse("jobs"));
    session.queue(200, "{}");
    EXPECT_EQ(failureOf(api.tags()), VarkAPIError::badResponse("tags list"));
    session.queue(200, R"({"id":3})");
    EXPECT_EQ(failureOf(api.ingestBegin("", "", 0, 0, false)), VarkAPIError::badResponse("ingest"));
}

TEST_F(Endpoints, ANameThatIsTakenIsToldApart) {
    for (auto call : {+[](HTTPVarkAPI& api) { return api.createFolder("a"); },
                      +[](HTTPVarkAPI& api) { return api.rename("a", "b"); },
                      +[](HTTPVarkAPI& api) { return api.move("a", "b"); }}) {
        session.queue(409, R"({"conflict":true,"error":"Taken"})");
        EXPECT_EQ(failureOf(call(api)), VarkAPIError::nameTaken("Taken"));
    }
}

TEST_F(Endpoints, SharesAreSupportedUnlessThereIsNoSuchRoute) {
    for (const auto& [status, supported] : std::vector<std::pair<int, bool>>{
             {404, false}, {405, false}, {403, true}, {400, true}, {500, true}}) {
        session.queue(status);
        EXPECT_EQ(loop.run(api.sharesSupported()), supported) << status;
    }
    EXPECT_EQ(session.requests.back().body, R"({"paths":[]})");
    session.queue(401);
    EXPECT_EQ(failureOf(api.sharesSupported()), VarkAPIError::unauthorized());
}

TEST_F(Endpoints, APollTellsEachStateFromAFailure) {
    const std::pair<int, DevicePoll> cases[] = {
        {429, DevicePoll::SlowDown{}}, {404, DevicePoll::Expired{}}, {410, DevicePoll::Expired{}}};
    for (const auto& [status, expected] : cases) {
        session.queue(status);
        EXPECT_EQ(loop.run(api.pollDeviceSignIn("n")), expected) << status;
    }
    session.queue(failure(HTTPError::timedOut));
    EXPECT_EQ(loop.run(api.pollDeviceSignIn("n 1")), DevicePoll(DevicePoll::Unreachable{}));
    EXPECT_EQ(session.requests.back().url.text(), "https://vark.example/api/device/poll/n%201");

    session.queue(200, R"({"state":"connected"})");
    EXPECT_EQ(failureOf(api.pollDeviceSignIn("n")), VarkAPIError::badResponse("connected without a token"));
    session.queue(200, "{}");
    EXPECT_EQ(failureOf(api.pollDeviceSignIn("n")), VarkAPIError::badResponse("device poll"));
    session.queue(500);
    EXPECT_EQ(failureOf(api.pollDeviceSignIn("n")), VarkAPIError::server(500));
}

TEST_F(Endpoints, WithoutATokenNothingGoesOutButTheSignIn) {
    token = std::nullopt;
    int sent = 0;
    for (const Endpoint& endpoint : endpoints()) {
        session.script = [&endpoint](const HTTPRequest&) { return answer(200, endpoint.body); };
        const std::optional<VarkAPIError> failed = failureOf(endpoint.call(api));
        if (endpoint.target.starts_with("/api/device/")) {
            EXPECT_EQ(failed, std::nullopt) << endpoint.target;
            EXPECT_EQ(headerOf(session.requests.back(), "Authorization"), "");
            ++sent;
        } else {
            EXPECT_EQ(failed, VarkAPIError::notConnected()) << endpoint.target;
        }
    }
    EXPECT_EQ(session.requests.size(), static_cast<std::size_t>(sent));
}

TEST_F(Endpoints, TheTokenIsAskedForAfreshAtEveryCall) {
    session.script = [](const HTTPRequest&) { return answer(200, "{}"); };
    loop.run(api.whoami());
    EXPECT_EQ(headerOf(session.requests.back(), "Authorization"), "Bearer t0ken");
    token = "new";
    loop.run(api.whoami());
    EXPECT_EQ(headerOf(session.requests.back(), "Authorization"), "Bearer new");
}

TEST_F(Endpoints, OnlyAPostWithNothingToSaySaysItsLength) {
    session.script = [](const HTTPRequest&) { return answer(200, "{}"); };
    loop.run(api.finish("u"));
    EXPECT_EQ(headerOf(session.requests.back(), "Content-Length"), "0");
    loop.run(api.cancel("u"));
    EXPECT_EQ(headerOf(session.requests.back(), "Content-Length"), "");
    loop.run(api.whoami());
    EXPECT_EQ(headerOf(session.requests.back(), "Content-Length"), "");
    loop.run(api.createFolder("a"));
    EXPECT_EQ(headerOf(session.requests.back(), "Content-Length"), "");
}

TEST_F(Endpoints, ARefusedTokenIsASignOutWhateverWasAsked) {
    session.script = [](const HTTPRequest&) { return answer(401, R"({"error":"Gone","sign_out":true})"); };
    for (const Endpoint& endpoint : endpoints())
        EXPECT_EQ(failureOf(endpoint.call(api)), VarkAPIError::unauthorized("Gone", "VARK-410"));
    EXPECT_EQ(failureOf(api.finish("u")), VarkAPIError::unauthorized("Gone", "VARK-410"));
}

TEST_F(Endpoints, ANetworkThatFailsIsASentence) {
    session.queue(failure(HTTPError::cannotFindHost));
    EXPECT_EQ(failureOf(api.whoami()), VarkAPIError::transport("Could not reach the vark."));
}

TEST_F(Endpoints, ACancelledCallIsNeverAFailureOfTheNetwork) {
    session.queue(hanging());
    session.queue(hanging(HTTPError(HTTPError::connectionLost, "cancelled")));
    for (int i = 0; i < 2; ++i) {
        const TaskHandle<WhoAmI> call = loop.start(api.whoami());
        loop.settle();
        call.cancel();
        loop.settle();
        EXPECT_THROW(call.result(), CancellationError);
    }
}

TEST_F(Endpoints, AClientThatWritesOnlyWhatMustBeThereCanDoWithoutTheRest) {
    EXPECT_EQ(loop.run(api.VarkAPI::binned("a")), std::nullopt);
    EXPECT_EQ(loop.run(api.VarkAPI::child(1, "a")), ChildAnswer::noRoute());
    EXPECT_EQ(failureOf(api.VarkAPI::ingestBegin("", "", 0, 0, false)), VarkAPIError::notConnected());
    EXPECT_EQ(failureOf(api.VarkAPI::ingestFinish(1, {}, {}, {})), std::nullopt);
    EXPECT_EQ(failureOf(api.VarkAPI::sendDiagnostics({})), std::nullopt);
    EXPECT_TRUE(session.requests.empty());

    session.queue(200, R"({"exists":true})");
    EXPECT_TRUE(loop.run(api.VarkAPI::begin("p", 1, "ab", 2, false, 7, "card")).exists());
    EXPECT_EQ(session.requests.back().body, R"({"path":"p","size":1,"sha256":"ab","mtime":2})");
}

TEST_F(Endpoints, EveryRequestNamesTheClientAndTheProcess) {
    const HTTPSessionSettings& settings = session.settings;
    EXPECT_EQ(settings.headers, (std::vector<HTTPHeader>{{"User-Agent", "VarkTransfer/1.0 (macOS)"},
                                                         {"X-Vark-Via", "Finder"}}));
    EXPECT_EQ(settings.mostConnectionsPerHost, 6);
    EXPECT_EQ(settings.resourceLimit, std::chrono::days(7));
    EXPECT_EQ(settings.authorityFile, "/tmp/authority.pem");
}

}  // namespace
}  // namespace vark
