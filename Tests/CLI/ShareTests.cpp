#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/CLI/CommandLine.h"
#include "VarkCore/Activity/SharedActivity.h"

namespace vark::cli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class Sharing : public test::CommandLine {
  public:
    Sharing() {
        world.connect("Acme");
        server.items["Acme/a"] = folder("Acme/a", 1);
    }
};

TEST_F(Sharing, ALinkIsPrintedAndCopied) {
    EXPECT_EQ(vark({"share", "a", "--audience", "domain", "--expires", "30d", "--message", " Hi\n"}),
              ExitCode::allLanded)
        << said();
    EXPECT_THAT(server.shares,
                ElementsAre(ShareRequest{{"Acme/a"}, ShareAudience::domain, ShareExpiry::month, "Hi"}));
    EXPECT_EQ(printed(), "https://vark.example/s/1\n");
    EXPECT_EQ(said(), "Link copied. It runs out tomorrow.\n");
    EXPECT_THAT(world.platform.copied, ElementsAre("https://vark.example/s/1"));

    server.share.url = "https://vark.example/\x1b[2J";
    world.platform.hasDesktop = false;
    EXPECT_EQ(vark({"share", "a"}), ExitCode::allLanded);
    EXPECT_EQ(printed(), "https://vark.example/\\x1b[2J\n");
    EXPECT_EQ(said(), "The link runs out tomorrow.\n");
}

TEST_F(Sharing, AVarkWithoutLinksIsToldFromOneThatRefuses) {
    struct Case {
        int status;
        bool makesShares;
        const char* said;
    };
    for (const Case& each :
         {Case{403, true, "Refused so."}, Case{404, true, "Refused so."},
          Case{404, false, "This vark makes no links."}, Case{405, false, "This vark makes no links."}}) {
        server.shareStatus = each.status;
        server.makesShares = each.makesShares;
        EXPECT_EQ(vark({"share", "a"}), ExitCode::somethingFailed);
        EXPECT_EQ(said(), std::string(each.said) + "\n");
        EXPECT_EQ(printed(), "");
    }
}

TEST_F(Sharing, ItemsAreFiledAgainstTheOneJobOfAReference) {
    server.jobs = std::vector<VarkJob>{
        {.id = 7, .ref = "J-7", .title = "Sum\x1bmer"}, {.id = 70, .ref = "J-70"}, {.id = 71, .ref = "J-70"}};
    EXPECT_EQ(vark({"job", "find", "x"}), ExitCode::allLanded);
    EXPECT_EQ(printed(), "J-7 · Sum\\x1bmer\nJ-70\nJ-70\n");
    EXPECT_EQ(vark({"job", "file", "a", "--job", "J-70"}), ExitCode::usage);
    EXPECT_THAT(said(), HasSubstr("the reference of 2 jobs"));
    EXPECT_THAT(server.filed, IsEmpty());

    EXPECT_EQ(vark({"job", "file", "a", "--job", "j-7"}), ExitCode::allLanded) << said();
    EXPECT_EQ(printed(), "Filed 1 item under J-7 · Sum\\x1bmer\n");
    server.leftUnfiled = 1;
    EXPECT_EQ(vark({"job", "file", "a", "--job", "J-7", "--json"}), ExitCode::somethingFailed);
    EXPECT_EQ(printed(), "{\"filed\":0,\"job\":7,\"ref\":\"J-7\"}\n");
    EXPECT_EQ(SharedActivity::read(world.surroundings.sharedFolder()).size(), 1U);
}

}  // namespace
}  // namespace vark::cli
