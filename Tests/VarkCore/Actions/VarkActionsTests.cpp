#include "VarkCore/Actions/VarkActions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/SilentVark.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/Actions/ActionLines.h"

namespace vark {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A vark with items, shares and a job book; it writes down what it is asked.
class DeskVark : public test::SilentVark {
  public:
    std::vector<std::string> asked;
    std::vector<ShareRequest> shares;
    std::optional<VarkAPIError> jobBookFailure;

    using SilentVark::item;
    Task<VarkItem> item(std::int64_t id) override {
        asked.push_back("item " + std::to_string(id));
        co_await yieldNow();
        if (id > 99) throw VarkAPIError::server(404);
        co_return VarkItem{.id = id, .path = "Jobs/" + std::to_string(id)};
    }
    using VarkAPI::createShare;
    Task<VarkShare> createShare(ShareRequest request) override {
        asked.emplace_back("share");
        shares.push_back(std::move(request));
        co_return VarkShare{.url = "https://vark.example/s/1"};
    }
    Task<std::vector<VarkJob>> findJobs(std::string) override {
        if (jobBookFailure) throw VarkAPIError(*jobBookFailure);
        co_return std::vector<VarkJob>{};
    }
    Task<std::int64_t> fileAgainstJob(std::vector<std::string> paths, std::int64_t) override {
        if (jobBookFailure) throw VarkAPIError(*jobBookFailure);
        co_return static_cast<std::int64_t>(paths.size());
    }
};

class Actions : public testing::Test {
  protected:
    template <class T>
    std::string sentenceOf(Task<T> task) {
        try {
            loop.run(std::move(task));
            return "";
        } catch (const std::exception& error) {
            return error.what();
        }
    }

    test::TestLoop loop;
    DeskVark vark;
    VarkActions actions{vark};
};

TEST_F(Actions, OnlyCopyingALinkNeedsNoAnswers) {
    EXPECT_EQ(loop.run(actions.perform("dev.vark.action.copylink", {2, 1})).url, "https://vark.example/s/1");
    EXPECT_THAT(vark.shares, ElementsAre(ShareRequest{{"Jobs/2", "Jobs/1"}, ShareAudience::link, {}, ""}));
    vark.asked.clear();
    for (const char* action : {"dev.vark.action.share", "dev.vark.action.job", ""})
        EXPECT_EQ(sentenceOf(actions.perform(action, {1})),
                  std::string("Vark does not know what to do with ") + action + ".");
    EXPECT_THAT(vark.asked, IsEmpty());
}

TEST_F(Actions, ItemsAreFetchedInOrderAllOrNone) {
    EXPECT_EQ(loop.run(actions.items({3, 1, 3})).size(), 3u);
    EXPECT_THAT(vark.asked, ElementsAre("item 3", "item 1", "item 3"));
    vark.asked.clear();
    EXPECT_EQ(sentenceOf(actions.copyLink({})), "Nothing was chosen.");
    EXPECT_THAT(vark.asked, IsEmpty());
    EXPECT_EQ(sentenceOf(actions.share({1, 100, 2}, ShareAudience::link, {}, "")), "The vark answered 404.");
    EXPECT_THAT(vark.asked, ElementsAre("item 1", "item 100"));
}

TEST_F(Actions, AShareCarriesItsMessageWithoutTheBlanksAround) {
    loop.run(actions.share({1}, ShareAudience::domain, ShareExpiry::week, "  a\n b\n"));
    loop.run(actions.share({1}, ShareAudience::link, {}, " \n"));
    EXPECT_THAT(vark.shares,
                ElementsAre(ShareRequest{{"Jobs/1"}, ShareAudience::domain, ShareExpiry::week, "a\n b"},
                            ShareRequest{{"Jobs/1"}, ShareAudience::link, {}, ""}));
}

TEST_F(Actions, AVarkWithoutTheRouteHasNoJobBook) {
    EXPECT_EQ(loop.run(actions.fileAgainstJob({1, 2}, {.id = 7})), 2);
    const std::string noJobBook = "This vark has no job book connected.";
    for (const auto& [error, sentence] : std::vector<std::pair<VarkAPIError, std::string>>{
             {VarkAPIError::server(404), noJobBook},
             {VarkAPIError::server(405, "Not allowed"), noJobBook},
             {VarkAPIError::server(403), "The vark answered 403."},
             {VarkAPIError::transport("No network connection."), "No network connection."}}) {
        vark.jobBookFailure = error;
        EXPECT_EQ(sentenceOf(actions.findJobs("")), sentence);
        EXPECT_EQ(sentenceOf(actions.fileAgainstJob({1}, {.id = 7})), sentence);
    }
    // It is the item that is gone, and not the job book.
    EXPECT_EQ(sentenceOf(actions.fileAgainstJob({100}, {.id = 7})), "The vark answered 404.");
}

TEST_F(Actions, ASelectionIsCalledByItsFirstItem) {
    const VarkItem a{.name = "A"};
    const VarkItem root{};
    for (const auto& [items, name] : std::vector<std::pair<std::vector<VarkItem>, std::string>>{
             {{}, ""}, {{a}, "A"}, {{root}, "the vark"}, {{a, root, root}, "A and 2 more"}})
        EXPECT_EQ(VarkActions::describe(items), name);
}

TEST(ActionLines, SayWhatWasDone) {
    const std::vector<VarkItem> items = {{.name = "A"}, {.name = "B"}};
    const VarkShare named{.url = "u", .expires = "in 7 days", .audience = "\xC3\x89veryone at Acme"};
    const ActivityEntry entry = ActionLines::shared(items, named, ShareAudience::link, "Acme", Date{7});
    EXPECT_EQ(entry.text, "Shared A and 1 more with \xC3\xA9veryone at Acme, runs out in 7 days");
    EXPECT_EQ(entry.at, Date{7});
    EXPECT_EQ(ActionLines::shared(items, {.url = "u", .expires = ""}, ShareAudience::domain, "Acme", {}).text,
              "Shared A and 1 more with everyone at Acme, no expiry given");
    EXPECT_EQ(ActionLines::filed(items, {.id = 7, .ref = "J-7"}, {}).text,
              "Put job number J-7 on A and 1 more");
    const ActivityEntry sent = ActionLines::sent("Jobs/2026/Shoot/100%d.mov", Date{7});
    EXPECT_EQ(sent.text, "Sent 100%d.mov");
    EXPECT_EQ(sent.place, "2026 › Shoot");
    EXPECT_EQ(sent.folder, "Jobs/2026/Shoot");
    EXPECT_EQ(ActionLines::sent("A", {}).folder, "") << "at the top of the vark";
}

}  // namespace
}  // namespace vark
