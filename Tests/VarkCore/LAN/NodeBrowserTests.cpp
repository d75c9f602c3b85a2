#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/FakeServiceBrowser.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/LAN/NodeBrowser.h"

namespace vark {
namespace {

using std::chrono::seconds;
using test::FakeServiceBrowser;
using test::Location;
using testing::ElementsAre;
using testing::IsEmpty;

using Text = std::map<std::string, std::string>;

constexpr Date now{1000};
const Location silence;

Location at(std::string address) {
    return {.address = std::move(address)};
}

Location failing(std::string description) {
    return {.failure = DialError(DialError::network, std::move(description))};
}

FoundService service(std::string name, Text text = {{"host", "node.example"}}) {
    return {std::move(name), std::move(text), "eth0"};
}

class NodeBrowserTest : public testing::Test {
  public:
    test::TestLoop loop;
    FakeServiceBrowser services;
    TemporaryFolder folder;
    LANRouter router;
    std::vector<std::string> log;
    std::vector<bool> allowed;
    std::optional<NodeBrowser> browser;

    NodeBrowserTest() {
        browser.emplace(router, NodeBrowser::Host{loop.executor, loop.clock, [] { return now; }, services,
                                                  loop.pool, folder.path()});
        browser->log = [this](std::string sentence) { log.push_back(std::move(sentence)); };
        browser->onAllowed = [this](bool isAllowed) { allowed.push_back(isAllowed); };
        browser->start();
    }
    void announce(std::vector<FoundService> found) {
        services.announce(std::move(found));
        loop.settle();
    }
    std::vector<std::string> takeLog() { return std::exchange(log, {}); }
    std::vector<LANNode> published() const { return LANRouter::load(folder.path(), now, 600); }
};

TEST_F(NodeBrowserTest, ReadsWhatANodeAnnounces) {
    struct Case {
        Text text;
        std::uint16_t port;
        bool api;
    };
    const Case cases[] = {
        {{{"host", "n.example"}}, 443, false},
        {{{"host", "n.example"}, {"port", "8443"}, {"api", "1"}}, 8443, true},
        {{{"host", "n.example"}, {"port", "abc"}, {"api", "TRUE"}}, 443, true},
        {{{"host", "n.example"}, {"port", "8443 "}, {"api", "Yes"}}, 443, true},
        {{{"host", "n.example"}, {"port", "70000"}, {"api", "on"}}, 443, false},
        {{{"host", "n.example"}, {"port", "0"}, {"api", ""}}, 443, false},
        {{{"host", "n.example"}, {"port", "-1"}, {"api", "true "}}, 443, false},
    };
    EXPECT_EQ(services.type, "_vark-node._tcp");
    services.locations["n"] = {at("10.0.0.7")};
    for (const Case& example : cases) {
        announce({service("n", example.text)});
        EXPECT_THAT(router.all(),
                    ElementsAre(LANNode{"n", "n.example", "10.0.0.7", example.port, now, example.api}));
        EXPECT_EQ(published(), router.all());
        announce({});
    }
    takeLog();
    announce({service("none", {}), service("empty", {{"host", ""}, {"port", "1"}})});
    EXPECT_THAT(services.located, testing::Each("n")) << "a service without a host is no node";
    EXPECT_THAT(log, IsEmpty());
}

TEST_F(NodeBrowserTest, SaysWhoComesAndGoesAndPublishesIt) {
    services.locations["a"] = {at("10.0.0.7")};
    services.locations["b"] = {at("fe80::1%en0")};
    announce({service("a"), service("b", {{"host", "b.example"}, {"port", "8443"}, {"api", "1"}})});
    EXPECT_THAT(takeLog(),
                ElementsAre("Vark node a is on this network at 10.0.0.7:443 for node.example",
                            "Vark node b is on this network at fe80::1:8443 for b.example, with the API"));
    EXPECT_EQ(published().size(), 2U);

    announce({service("b", {{"host", "other.example"}})});
    EXPECT_THAT(takeLog(), ElementsAre("Vark node a left this network"));
    EXPECT_THAT(published(), ElementsAre(LANNode{"b", "b.example", "fe80::1", 8443, now, true}))
        << "a node that stays is not looked at again";
    EXPECT_EQ(published(), router.all());
}

TEST_F(NodeBrowserTest, TriesAgainTenSecondsAfterAFailure) {
    struct Case {
        Location location;
        seconds until;
        std::string sentence;
    };
    const Case cases[] = {
        {failing("Connection refused"), seconds(0),
         "Vark node n is not reachable yet (Connection refused); trying again shortly"},
        {failing(""), seconds(0), "Could not reach vark node n to learn its address; trying again shortly"},
        {silence, seconds(6), "Vark node n did not answer in time; trying again shortly"},
    };
    for (const Case& example : cases) {
        services.locations["n"] = {example.location, at("10.0.0.7")};
        announce({service("n")});
        loop.advance(example.until);
        EXPECT_THAT(takeLog(), ElementsAre(example.sentence));
        EXPECT_EQ(services.locating, 0);
        loop.advance(std::chrono::milliseconds(9999));
        EXPECT_THAT(router.all(), IsEmpty());
        loop.advance(std::chrono::milliseconds(1));
        EXPECT_EQ(router.all().size(), 1U);
        announce({});
        takeLog();
    }
    EXPECT_EQ(loop.clock.nextDeadline(), std::nullopt) << "no timer runs when no node is failing";
}

TEST_F(NodeBrowserTest, ANodeBeingResolvedIsNotResolvedTwice) {
    services.locations["n"] = {silence, failing("x"), at("10.0.0.7")};
    announce({service("n")});
    announce({service("n"), service("n", {{"host", "second.example"}})});
    EXPECT_EQ(services.located.size(), 1U);
    loop.advance(seconds(6));
    announce({service("n")});
    EXPECT_EQ(services.located.size(), 2U) << "a change of the results does not wait for the retry";
    loop.advance(seconds(60));
    EXPECT_EQ(services.located.size(), 3U) << "both retries are due, and one of them has it";
}

TEST_F(NodeBrowserTest, ANodeThatLeftIsNotTriedAgain) {
    services.locations["n"] = {failing("x")};
    announce({service("n")});
    announce({});
    loop.advance(seconds(60));
    EXPECT_EQ(services.located.size(), 1U);
}

TEST_F(NodeBrowserTest, ANodeWithoutAnAddressWaitsForTheNextResults) {
    services.locations["n"] = {at(""), at("10.0.0.7")};
    announce({service("n")});
    loop.advance(seconds(60));
    EXPECT_EQ(services.located.size(), 1U);
    EXPECT_THAT(log, IsEmpty());
    announce({service("n")});
    EXPECT_EQ(router.all().size(), 1U);
}

TEST_F(NodeBrowserTest, OfTwoNamesForOneHostTheLaterIsKept) {
    services.locations["a"] = {at("10.0.0.1")};
    services.locations["b"] = {at("10.0.0.2")};
    announce({service("a"), service("b")});
    announce({service("b")});
    EXPECT_THAT(router.all(), ElementsAre(testing::Field(&LANNode::ip, "10.0.0.2")));
    announce({});
    EXPECT_THAT(router.all(), IsEmpty());
}

TEST_F(NodeBrowserTest, TellsWhetherItMayLook) {
    services.change(BrowsingReady{});
    services.change(BrowsingDenied{});
    services.change(BrowsingFailed{"no daemon"});
    EXPECT_THAT(allowed, ElementsAre(true, false));
    EXPECT_THAT(takeLog(), ElementsAre("Looking for vark nodes on this network",
                                       "macOS is not letting Vark look on this network",
                                       "Node browsing stopped: no daemon"));
    announce({});
    EXPECT_THAT(allowed, ElementsAre(true, false));
    announce({service("n", {})});
    EXPECT_THAT(allowed, ElementsAre(true, false, true));
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
}  // namespace vark
