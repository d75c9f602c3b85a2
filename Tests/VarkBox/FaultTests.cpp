#include <curl/curl.h>
#include <fmt/format.h>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>

#include "Tests/VarkBox/BoxFixture.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::box {

namespace json = boost::json;

class BoxFaults : public BoxFixture {
  protected:
    void SetUp() override { start(); }

    void arm(const json::value& fault) {
        Answer answer = client->control("POST", "/control/faults", fault);
        ASSERT_EQ(answer.status, 201) << answer.body;
    }
    void disarm() { client->control("DELETE", "/control/faults"); }
};

TEST_F(BoxFaults, EachKindFailsTheRequestInItsOwnWay) {
    Answer begun = client->begin("Jobs/a.bin", someBytes(1000));
    std::string chunk = std::string(begun.json().at("chunk_url").as_string()) + "/0";
    struct Case {
        json::value fault;
        long status;
        std::vector<int> problems;
    };
    std::vector<int> none = {CURLE_OK};
    std::vector<int> broken = {CURLE_RECV_ERROR, CURLE_SEND_ERROR, CURLE_GOT_NOTHING};
    std::vector<int> silent = {CURLE_OPERATION_TIMEDOUT};
    for (const Case& kind :
         std::vector<Case>{{{{"kind", "status"}, {"status", 503}}, 503, none},
                           {{{"kind", "status"}, {"status", 429}, {"after_bytes", 100}}, 429, none},
                           {{{"kind", "wrong_route"}}, 400, none},
                           {{{"kind", "refuse_token"}}, 401, none},
                           {{{"kind", "reset"}, {"after_bytes", 500}}, 0, broken},
                           {{{"kind", "stall"}, {"after_bytes", 500}}, 0, silent},
                           {{{"kind", "stall_after_body"}}, 0, silent},
                           {{{"kind", "latency"}, {"ms", 60000}}, 0, silent}}) {
        arm(kind.fault);
        // Nothing comes that could end the wait of a client sooner.
        long patience = kind.problems == silent ? 150 : 20000;
        Answer answer = client->send("PUT", chunk, someBytes(1000), {}, patience);
        EXPECT_EQ(answer.status, kind.status) << kind.fault;
        EXPECT_THAT(kind.problems, testing::Contains(answer.problem)) << kind.fault;
        if (kind.status >= 400) EXPECT_FALSE(answer.error().empty()) << kind.fault;
        disarm();
        EXPECT_EQ(client->begin("Jobs/a.bin", someBytes(1000)).json().at("have"), json::array())
            << kind.fault;
    }
    EXPECT_EQ(client->send("PUT", chunk, someBytes(1000)).status, 200);

    arm({{"kind", "short_body"}});
    EXPECT_EQ(client->get("/api/whoami").problem, CURLE_PARTIAL_FILE);
    disarm();
    arm({{"kind", "latency"}, {"ms", 1}});
    EXPECT_EQ(client->get("/api/whoami").status, 200);
}

TEST_F(BoxFaults, ABrokenRequestIsLoggedWithTheBytesThatCame) {
    Answer begun = client->begin("Jobs/a.bin", someBytes(1000));
    arm({{"kind", "reset"}, {"after_bytes", 400}, {"listener", "chunk"}});
    client->send("PUT", std::string(begun.json().at("chunk_url").as_string()) + "/0", someBytes(1000));
    box->stop();
    std::string log = readWholeFile(folder.path() / "requests.jsonl");
    log.pop_back();
    json::value last = json::parse(log.substr(log.rfind('\n') + 1));
    EXPECT_EQ(last.at("method"), "PUT");
    EXPECT_EQ(last.at("status"), 0);
    EXPECT_EQ(last.at("body_bytes"), 400);
}

TEST_F(BoxFaults, AFaultMeetsOnlyTheRequestsThatItNames) {
    struct Case {
        json::value condition;
        bool meetsWhoami;
    };
    for (const Case& named : std::vector<Case>{{{{"method", "GET"}}, true},
                                               {{{"method", "POST"}}, false},
                                               {{{"path", "/api/who"}}, true},
                                               {{{"path", "/api/items"}}, false},
                                               {{{"path_contains", "oam"}}, true},
                                               {{{"path_contains", "tags"}}, false},
                                               {{{"listener", "app"}}, true},
                                               {{{"listener", "chunk"}}, false},
                                               {{{"probability", 0}}, false}}) {
        json::object fault = named.condition.as_object();
        fault["kind"] = "status";
        arm(fault);
        EXPECT_EQ(client->get("/api/whoami").status, named.meetsWhoami ? 500 : 200) << json::value(fault);
        disarm();
    }
}

TEST_F(BoxFaults, AFaultSkipsAndCountsAndSaysHowOftenItFired) {
    arm({{"kind", "status"},
         {"status", 500},
         {"skip", 1},
         {"count", 2},
         {"body", {{"error", "On purpose."}}}});
    std::vector<long> statuses;
    for (int i = 0; i < 5; ++i)
        statuses.push_back(client->get("/api/whoami").status);
    EXPECT_EQ(statuses, (std::vector<long>{200, 500, 500, 200, 200}));
    EXPECT_EQ(client->control("GET", "/control/faults").json().at("faults").at(0).at("fired"), 2);
    disarm();
    EXPECT_TRUE(client->control("GET", "/control/faults").json().at("faults").as_array().empty());
    for (const json::value& wrong : {json::value({{"kind", "none"}}), json::value(json::object()),
                                     json::value({{"kind", "status"}, {"status", 1000}}),
                                     json::value({{"kind", "status"}, {"listener", "both"}})}) {
        EXPECT_EQ(client->control("POST", "/control/faults", wrong).status, 400) << wrong;
    }
}

TEST_F(BoxFaults, ALostUploadIsUnknownFromThenOn) {
    std::string bytes = someBytes(1500);
    Answer begun = client->begin("Jobs/a.bin", bytes);
    std::string base(begun.json().at("chunk_url").as_string());
    EXPECT_EQ(client->send("PUT", base + "/0", bytes.substr(0, 1000)).status, 200);
    arm({{"kind", "lose_upload"}, {"method", "PUT"}, {"count", 1}});
    EXPECT_EQ(client->send("PUT", base + "/1", bytes.substr(1000)).status, 404);
    Answer again = client->begin("Jobs/a.bin", bytes);
    EXPECT_NE(again.json().at("upload_id"), begun.json().at("upload_id"));
    EXPECT_EQ(again.json().at("have"), json::array());
    EXPECT_EQ(client->upload("Jobs/a.bin", bytes).json().at("state"), "done");
}

TEST_F(BoxFaults, ACheckThatFailsOnPurposeFailsOneUploadAndNotTheNext) {
    for (std::size_t size : std::initializer_list<std::size_t>{100, 2'000'000}) {
        arm({{"kind", "fail_check"}, {"path_contains", "/finish"}, {"count", 1}});
        std::string path = fmt::format("Jobs/{}.bin", size);
        Answer failed = client->upload(path, someBytes(size));
        EXPECT_EQ(failed.json().at("state"), "failed");
        EXPECT_FALSE(failed.error().empty());
        EXPECT_EQ(client->upload(path, someBytes(size)).json().at("state"), "done");
    }
}

TEST_F(BoxFixture, FaultsGivenAtTheStartAreInForce) {
    options.faults = {R"({"kind": "status", "status": 502, "path": "/api/whoami", "count": 1})"};
    start();
    EXPECT_EQ(client->get("/api/whoami").status, 502);
    EXPECT_EQ(client->get("/api/whoami").status, 200);
}

}  // namespace vark::box
