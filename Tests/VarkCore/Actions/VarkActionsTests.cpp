#include "VarkCore/Actions/VarkActions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/SilentVark.h"
#include "Tests/Support/TestLoop.h"

namespace vark {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Refusal = VarkActions::Refusal;

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
    Task<std::vector<VarkJob>> findJobs(std::string query) override {
        asked.push_back("find " + query);
        if (jobBookFailure) throw VarkAPIError(*jobBookFailure);
        co_return std::vector<VarkJob>{{.id = 7, .ref = "J-7"}};
    }
    Task<std::int64_t> fileAgainstJob(std::vector<std::string> paths, std::int64_t jobID) override {
        for (const std::string& path : paths)
            asked.push_back("file " + path + " under " + std::to_string(jobID));
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
    for (const char* action :
         {"dev.vark.action.share", "dev.vark.action.job", "dev.vark.action.copylink ", ""})
        EXPECT_EQ(sentenceOf(actions.perform(action, {1})),
                  std::string("Vark does not know what to do with ") + action + ".");
    EXPECT_THAT(vark.asked, IsEmpty());
}

TEST_F(Actions, ItemsAreFetchedInOrderAllOrNone) {
    EXPECT_EQ(loop.run(actions.items({3, 1, 3})).size(), 3u);
    EXPECT_THAT(vark.asked, ElementsAre("item 3", "item 1", "item 3"));
    vark.asked.clear();
    EXPECT_EQ(sentenceOf(actions.copyLink({})), "Nothing was chosen.");
    EXPECT_EQ(sentenceOf(actions.fileAgainstJob({}, {.id = 7})), "Nothing was chosen.");
    EXPECT_THAT(vark.asked, IsEmpty());
    EXPECT_EQ(sentenceOf(actions.share({1, 100, 2}, ShareAudience::link, {}, "")), "The vark answered 404.");
    EXPECT_THAT(vark.asked, ElementsAre("item 1", "item 100"));
}

TEST_F(Actions, AShareCarriesItsMessageWithoutTheBlanksAround) {
    for (const auto& [typed, sent] : std::vector<std::pair<const char*, const char*>>{
             {"  hello\n", "hello"}, {"   ", ""}, {"a\n b", "a\n b"}}) {
        vark.shares.clear();
        loop.run(actions.share({1}, ShareAudience::domain, ShareExpiry::week, typed));
        EXPECT_THAT(vark.shares,
                    ElementsAre(ShareRequest{{"Jobs/1"}, ShareAudience::domain, ShareExpiry::week, sent}));
    }
}

TEST_F(Actions, AVarkWithoutTheRouteHasNoJobBook) {
    EXPECT_EQ(loop.run(actions.findJobs("J 7")).front().id, 7);
    EXPECT_EQ(loop.run(actions.fileAgainstJob({1, 2}, {.id = 7})), 2);
    EXPECT_THAT(vark.asked,
                ElementsAre("find J 7", "item 1", "item 2", "file Jobs/1 under 7", "file Jobs/2 under 7"));
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
    EXPECT_EQ(sentenceOf(actions.fileAgainstJob({100}, {.id = 7})), "The vark answered 404.");
}

TEST_F(Actions, ASelectionIsCalledByItsFirstItem) {
    const VarkItem a{.name = "A"};
    const VarkItem root{};
    EXPECT_EQ(VarkActions::describe({}), "");
    EXPECT_EQ(VarkActions::describe({a}), "A");
    EXPECT_EQ(VarkActions::describe({root}), "the vark");
    EXPECT_EQ(VarkActions::describe({a, root, root}), "A and 2 more");
    EXPECT_EQ(VarkActions::describe({root, a}), "the vark and 1 more");
}

}  // namespace
}  // namespace vark
