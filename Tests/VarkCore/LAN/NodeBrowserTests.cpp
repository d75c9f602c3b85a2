#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/Fakes/FakeServiceBrowser.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/LAN/NodeBrowser.h"

namespace vark::test {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Text = std::map<std::string, std::string>;

constexpr Date now{1000};
const Location silence;
const Location there{.address = "10.0.0.7"};
const Location refused{.failure = DialError(DialError::network, "Connection refused")};

FoundService service(std::string name, Text text = {{"host", "node.example"}}) {
    return {std::move(name), std::move(text), "eth0"};
}

class NodeBrowserTest : public testing::Test {
  public:
    TestLoop loop;
    FakeServiceBrowser services;
    TemporaryFolder folder;
    LANRouter router;
    std::vector<std::string> log;
    std::optional<NodeBrowser> browser;

    NodeBrowserTest() {
        browser.emplace(router, NodeBrowser::Host{loop.executor, loop.clock, [] { return now; }, services,
                                                  loop.pool, folder.path()});
        browser->log = [this](std::string sentence) { log.push_back(std::move(sentence)); };
        browser->start();
    }
    void announce(std::vector<FoundService> found) {
        services.announce(std::move(found));
        loop.settle();
    }
    std::vector<LANNode> published() const { return LANRouter::load(folder.path(), now, 600); }
};

TEST_F(NodeBrowserTest, ReadsWhatANodeAnnouncesAndPublishesIt) {
    struct Case {
        Text text;
        std::uint16_t port;
        bool api = false;
    };
    const Case cases[] = {
        {{{"host", "n.example"}}, 443},
        {{{"host", "n.example"}, {"port", "8443"}, {"api", "1"}}, 8443, true},
        {{{"host", "n.example"}, {"port", "abc"}, {"api", "TRUE"}}, 443, true},
        {{{"host", "n.example"}, {"port", "70000"}, {"api", "on"}}, 443},
        {{{"host", "n.example"}, {"port", "0"}}, 443},
    };
    services.locations["n"] = {{.address = "fe80::1%en0"}};
    for (const Case& c : cases) {
        announce({service("n", c.text)});
        EXPECT_THAT(router.all(), ElementsAre(LANNode{"n", "n.example", "fe80::1", c.port, now, c.api}));
        EXPECT_EQ(published(), router.all());
        announce({service("n", {{"host", "other.example"}})});
        EXPECT_EQ(router.all()[0].host, "n.example") << "a node that stays is not looked at again";
        announce({});
        EXPECT_THAT(published(), IsEmpty());
    }
    announce({service("none", {}), service("empty", {{"host", ""}, {"port", "1"}})});
    EXPECT_THAT(services.located, testing::Each("n")) << "a service without a host is no node";
}

TEST_F(NodeBrowserTest, TriesAgainTenSecondsAfterAFailure) {
    const std::pair<Location, seconds> cases[] = {{refused, seconds(0)}, {silence, seconds(6)}};
    for (const auto& [location, until] : cases) {
        services.locations["n"] = {location, there};
        announce({service("n")});
        loop.advance(until);
        EXPECT_THAT(log.back(), HasSubstr("trying again shortly"));
        EXPECT_EQ(services.locating, 0);
        loop.advance(std::chrono::milliseconds(9999));
        EXPECT_THAT(router.all(), IsEmpty());
        loop.advance(std::chrono::milliseconds(1));
        EXPECT_EQ(router.all().size(), 1U);
        announce({});
    }
    EXPECT_EQ(loop.clock.nextDeadline(), std::nullopt) << "no timer runs when no node is failing";
}

TEST_F(NodeBrowserTest, StoppedItLetsResolvesRunOutAndGoneItEndsThem) {
    services.locations["n"] = {silence};
    announce({service("n")});
    browser->stop();
    EXPECT_FALSE(services.isStarted());
    loop.settle();
    EXPECT_EQ(services.locating, 1);
    browser.reset();
    EXPECT_EQ(services.locating, 0);
    EXPECT_THAT(log, IsEmpty());
}

}  // namespace
}  // namespace vark::test
