#include "VarkCore/Actions/VarkActions.h"

#include "Tests/Support/APIWorld.h"

namespace vark::test {
namespace {

/// A vark with one item, and what it answers to what is done with it.
class Actions : public APIWorld {
  public:
    VarkActions actions{api};
    ScriptedAnswer done = answer(200, R"({"url":"u","jobs":[],"applied":1})");

    Actions() {
        session.script = [this](const HTTPRequest& request) {
            if (!request.url.path().starts_with("/api/item/")) return done;
            return request.url.path() == "/api/item/1" ? answer(200, R"({"id":1,"path":"Jobs/1"})")
                                                       : answer(404);
        };
    }
};

TEST_F(Actions, AShareCarriesItsMessageWithoutTheBlanksAround) {
    loop.run(actions.share({1}, ShareAudience::domain, ShareExpiry::week, "  a\n b\n"));
    EXPECT_EQ(session.requests.back().body,
              R"({"paths":["Jobs/1"],"mode":"domain","expiry":"7d","message":"a\n b"})");
    loop.run(actions.perform("dev.vark.action.copylink", {1, 1}));
    EXPECT_EQ(session.requests.back().body, R"({"paths":["Jobs/1","Jobs/1"],"mode":"link"})");

    session.requests.clear();
    EXPECT_THROW(loop.run(actions.share({1, 2}, ShareAudience::link, {}, "")), VarkAPIError);
    EXPECT_EQ(session.requests.back().url.path(), "/api/item/2") << "all or none";
    EXPECT_THROW(loop.run(actions.copyLink({})), VarkActions::Refusal);
    EXPECT_THROW(loop.run(actions.perform("dev.vark.action.job", {1})), VarkActions::Refusal);
    EXPECT_EQ(session.requests.size(), 2U);
}

TEST_F(Actions, AVarkWithoutTheRouteHasNoJobBook) {
    EXPECT_EQ(loop.run(actions.fileAgainstJob({1}, {.id = 7})), 1);
    // It is the item that is gone.
    EXPECT_THROW(loop.run(actions.fileAgainstJob({2}, {.id = 7})), VarkAPIError);
    for (const int status : {404, 405}) {
        done = answer(status);
        EXPECT_THROW(loop.run(actions.findJobs("")), VarkActions::Refusal);
        EXPECT_THROW(loop.run(actions.fileAgainstJob({1}, {.id = 7})), VarkActions::Refusal);
    }
    done = answer(403);
    EXPECT_THROW(loop.run(actions.findJobs("")), VarkAPIError);
}

}  // namespace
}  // namespace vark::test
