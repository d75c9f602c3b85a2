#include <fmt/format.h>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include "Tests/VarkBox/BoxFixture.h"
#include "VarkBox/Database.h"
#include "VarkBox/Exchange.h"
#include "VarkBox/Shares.h"

namespace vark::box {

namespace json = boost::json;

class BoxShares : public BoxFixture {
  protected:
    void SetUp() override {
        start();
        client->upload("Jobs/Shoot/a & b.jpg", "first");
        client->upload("Jobs/Shoot/Raw/c.dng", "second");
        client->upload("Jobs/plan.pdf", "third");
    }

    Answer share(const json::object& request) { return client->post("/api/shares", request); }
    Answer open(const Answer& made, std::string_view more = "") {
        BoxClient anybody(box->url(), box->authority(), "");
        return anybody.get(std::string(made.json().at("url").as_string()) + std::string(more));
    }
};

TEST_F(BoxShares, AShareIsAPageThatListsWhatLiesInItAndGivesItsFilesAway) {
    Answer made = share({{"paths", {"Jobs/Shoot", "Jobs/plan.pdf"}},
                         {"mode", "domain"},
                         {"expiry", "7d"},
                         {"message", "For <you>"}});
    EXPECT_EQ(made.status, 201);
    EXPECT_EQ(made.json().at("title"), "Shoot and 1 more");
    EXPECT_EQ(made.json().at("audience"), "everyone at Acme");
    EXPECT_EQ(made.json().at("expires"), "in 7 days");
    EXPECT_EQ(made.json().at("expires_at").as_string().size(), 20u);
    client->post("/api/files/rename", {{"path", "Jobs/plan.pdf"}, {"new_name", "Plan 2.pdf"}});
    std::string page = open(made).body;
    for (const char* shown :
         {"For &lt;you&gt;", ">Shoot/a &amp; b.jpg<", ">Shoot/Raw/c.dng<", ">Plan 2.pdf<"})
        EXPECT_NE(page.find(shown), std::string::npos) << shown << page;
    std::int64_t inside = client->itemID("Jobs/Shoot/Raw/c.dng");
    EXPECT_EQ(open(made, fmt::format("/{}", inside)).body, "second");

    Answer other = share({{"paths", {"Jobs/Plan 2.pdf"}}, {"mode", "link"}});
    EXPECT_EQ(other.json().at("audience"), "anyone with the link");
    EXPECT_FALSE(other.json().as_object().contains("expires"));
    EXPECT_EQ(open(other, fmt::format("/{}", inside)).status, 404);
    EXPECT_EQ(open(other, "x").status, 404);
}

TEST_F(BoxShares, AShareRunsOutAtItsTime) {
    box->stop();
    Database database(folder.path() / "records.sqlite");
    Turn turn = database.write();
    Shares shares(turn);
    Share made = shares.make({.until = 100.0});
    EXPECT_NO_THROW(shares.require(made.key, 99));
    EXPECT_THROW(shares.require(made.key, 100), Refusal);
}

TEST_F(BoxShares, WhatCannotBeSharedIsRefusedAndNothingIsMade) {
    struct Case {
        json::object request;
        long status;
    };
    for (const Case& wrong :
         std::vector<Case>{{{{"paths", json::array()}}, 400},
                           {{{"paths", {"Jobs"}}}, 400},
                           {{{"paths", {"Jobs"}}, {"mode", "everybody"}}, 400},
                           {{{"paths", {"Jobs"}}, {"mode", "link"}, {"expiry", "1y"}}, 400},
                           {{{"paths", {"None"}}, {"mode", "link"}}, 404}}) {
        Answer answer = share(wrong.request);
        EXPECT_EQ(answer.status, wrong.status) << json::value(wrong.request);
        EXPECT_FALSE(answer.error().empty()) << json::value(wrong.request);
    }
    EXPECT_EQ(share({{"paths", {"Jobs"}}, {"mode", "link"}}).json().at("share_id"), 1);
}

TEST_F(BoxShares, JobsAreFoundByNumberTitleAndClientAndTakeFiles) {
    auto refs = [&](std::string_view typed) {
        std::vector<std::string> found;
        json::value answer = client->get("/api/jobs?q=" + escaped(typed)).json();
        for (const json::value& job : answer.at("jobs").as_array())
            found.emplace_back(job.at("ref").as_string());
        return found;
    };
    using Refs = std::vector<std::string>;
    EXPECT_EQ(refs("").size(), 5u);
    EXPECT_EQ(refs("j-1042"), Refs{"J-1042"});
    EXPECT_EQ(refs("NORTH"), (Refs{"J-1043", "J-1042"}));
    EXPECT_EQ(refs("& s"), Refs{"J-1044"});
    EXPECT_EQ(refs("lookbook"), Refs{"J-1045"});
    EXPECT_EQ(refs("%"), Refs{});
    json::object filing{{"paths", {"Jobs/plan.pdf", "Jobs/none", "Jobs/Shoot"}}, {"job_id", 2}};
    for (int round = 0; round < 2; ++round)
        EXPECT_EQ(client->post("/api/jobs/apply", filing).json(), json::value({{"applied", 2}}));
    EXPECT_EQ(client->control("GET", "/control/jobs").json().at("jobs").at(1).at("paths"),
              json::value({"Jobs/Shoot", "Jobs/plan.pdf"}));
    filing["job_id"] = 99;
    EXPECT_EQ(client->post("/api/jobs/apply", filing).status, 400);
}

TEST_F(BoxShares, AVarkMayHaveNoJobBook) {
    EXPECT_EQ(client->get("/api/whoami").json().at("job_numbers"), true);
    box.reset();
    options.hasJobBook = false;
    start();
    EXPECT_EQ(client->get("/api/whoami").json().at("job_numbers"), false);
    EXPECT_EQ(client->get("/api/jobs?q=").status, 404);
    EXPECT_EQ(client->post("/api/jobs/apply", json::object()).status, 404);
}

}  // namespace vark::box
