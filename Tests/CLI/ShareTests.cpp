#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/CLI/CommandLine.h"

namespace vark::cli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

class Sharing : public test::CommandLine {
  public:
    Sharing() {
        world.connect("Acme");
        server.items["Acme/a"] = folder("Acme/a", 1);
        server.items[hostile] = folder(hostile, 2);
    }

    const std::string hostile = "Acme/\x1b[2J \"q\" \\ \xE2\x80\xAE ?#%&+;'$(x)\n.mov";
};

TEST_F(Sharing, ALinkIsPrintedAndCopied) {
    EXPECT_EQ(vark({"share", "a", hostile.substr(5), "--audience", "domain", "--expires", "30d", "--message",
                    " Hi\n"}),
              ExitCode::allLanded)
        << said();
    EXPECT_THAT(server.shares, ElementsAre(ShareRequest{
                                   {"Acme/a", hostile}, ShareAudience::domain, ShareExpiry::month, "Hi"}));
    EXPECT_EQ(printed(), "https://vark.example/s/1\n");
    EXPECT_EQ(said(), "Link copied. It runs out tomorrow.\n");
    EXPECT_THAT(world.platform.copied, ElementsAre("https://vark.example/s/1"));

    world.platform.hasDesktop = false;
    EXPECT_EQ(vark({"share", "a"}), ExitCode::allLanded);
    EXPECT_EQ(server.shares.back(), (ShareRequest{{"Acme/a"}, ShareAudience::link, std::nullopt, ""}));
    EXPECT_EQ(said(), "The link runs out tomorrow.\n");
    server.share = {.url = "https://vark.example/\x1b[2J", .shareID = 3};
    EXPECT_EQ(vark({"share", "a"}), ExitCode::allLanded);
    EXPECT_EQ(printed(), "https://vark.example/\\x1b[2J\n");
    EXPECT_EQ(said(), "");

    world.platform.hasDesktop = true;
    world.platform.copied.clear();
    EXPECT_EQ(vark({"share", "a", "--json"}), ExitCode::allLanded);
    EXPECT_EQ(printed(), "{\"url\":\"https://vark.example/\\u001b[2J\",\"shareID\":3}\n");
    EXPECT_THAT(world.platform.copied, IsEmpty());
}

TEST_F(Sharing, WhatKeepsFromSharingIsSaid) {
    struct Case {
        const char* path;
        int status;
        bool makesShares;
        const char* said;
    };
    for (const Case& each : {Case{"gone", 200, true, "There is no \"Acme/gone\" on the vark."},
                             Case{"a", 403, true, "Refused so."}, Case{"a", 404, true, "Refused so."},
                             Case{"a", 404, false, "This vark makes no links."},
                             Case{"a", 405, false, "This vark makes no links."}}) {
        server.shareStatus = each.status;
        server.makesShares = each.makesShares;
        EXPECT_EQ(vark({"share", each.path}), ExitCode::somethingFailed);
        EXPECT_EQ(said(), std::string(each.said) + "\n");
        EXPECT_EQ(printed(), "");
    }
    EXPECT_THAT(world.platform.copied, IsEmpty());
}

TEST_F(Sharing, JobsAreFoundByTheirLine) {
    server.jobs = std::vector<VarkJob>{{.id = 7, .ref = "J-1042", .title = "Summer", .client = "Ac\x1bme"},
                                       {.id = 8, .ref = "J-8"}};
    EXPECT_EQ(vark({"job", "find", "summer", "acme"}), ExitCode::allLanded);
    EXPECT_EQ(printed(), "J-1042 · Summer, Ac\\x1bme\nJ-8\n");
    EXPECT_EQ(vark({"job", "find", "x", "--json"}), ExitCode::allLanded);
    EXPECT_THAT(printed(),
                HasSubstr("{\"id\":8,\"ref\":\"J-8\",\"title\":\"\",\"client\":\"\",\"artist\":\"\","
                          "\"date\":\"\"}\n"));
    server.jobs->clear();
    EXPECT_EQ(vark({"job", "find", "x", "y"}), ExitCode::allLanded);
    EXPECT_EQ(said(), "The job book has nothing for \"x y\".\n");
    server.jobs.reset();
    EXPECT_EQ(vark({"job", "find", "x"}), ExitCode::somethingFailed);
    EXPECT_EQ(said(), "This vark has no job book connected.\n");
}

TEST_F(Sharing, ItemsAreFiledAgainstTheOneJobOfAReference) {
    const std::vector<VarkJob> book = {{.id = 7, .ref = "J-7", .title = "Summer"}, {.id = 70, .ref = "J-70"}};
    server.jobs = book;
    EXPECT_EQ(vark({"job", "file", "a", hostile.substr(5), "--job", "j-7"}), ExitCode::allLanded) << said();
    EXPECT_EQ(printed(), "Filed 2 under J-7 · Summer\n");
    EXPECT_THAT(server.filed, ElementsAre(Pair(ElementsAre("Acme/a", hostile), 7)));
    server.filed.clear();

    EXPECT_EQ(vark({"job", "file", "gone", "--job", "J-7"}), ExitCode::somethingFailed);
    EXPECT_EQ(vark({"job", "file", "a", "--job", "J-9"}), ExitCode::usage);
    EXPECT_THAT(said(), HasSubstr("There is no job \"J-9\""));
    server.jobs->push_back({.id = 71, .ref = "J-70"});
    EXPECT_EQ(vark({"job", "file", "a", "--job", "J-70"}), ExitCode::usage);
    EXPECT_THAT(said(), HasSubstr("the reference of 2 jobs"));
    server.jobs.reset();
    EXPECT_EQ(vark({"job", "file", "a", "--job", "J-7"}), ExitCode::somethingFailed);
    EXPECT_THAT(server.filed, IsEmpty());

    server.jobs = book;
    server.leftUnfiled = 1;
    EXPECT_EQ(vark({"job", "file", "a", "--job", "J-7", "--json"}), ExitCode::somethingFailed);
    EXPECT_EQ(printed(), "{\"filed\":0,\"job\":7,\"ref\":\"J-7\"}\n");
    EXPECT_EQ(said(), "The vark did not file all 1.\n");
}

}  // namespace
}  // namespace vark::cli
