#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/LAN/LANRouter.h"

namespace vark {
namespace {

using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

constexpr Date now{1000};

LANNode node(std::string name, std::string host, bool api = false) {
    return {std::move(name), std::move(host), "10.0.0.7", 8443, now, api};
}

URL url(std::string_view text) {
    return *URL::parse(text);
}

TEST(LANRouter, RoutesOnlyWhatTheVarkAddressedToANode) {
    struct Case {
        std::string_view url;
        std::string_view target;  // Empty: no route.
    };
    const Case cases[] = {
        {"https://node.example/up/1", "/up/1"},
        {"HTTPS://NODE.example:9/up/1?a=b&c", "/up/1?a=b&c"},
        {"https://node.example", "/"},
        {"https://node.example?", "/"},
        {"https://node.example/a%20b/", "/a%20b/"},
        {"http://node.example/up/1", ""},
        {"https://vark.example/up/1", ""},
        {"/up/1", ""},
    };
    const LANRouter router({node("n", "Node.Example")});
    for (const Case& example : cases) {
        SCOPED_TRACE(example.url);
        const std::optional<LANRoute> route = router.route(url(example.url), now);
        ASSERT_EQ(route.has_value(), !example.target.empty());
        if (!route) continue;
        EXPECT_EQ(route->requestTarget(), example.target);
        EXPECT_EQ(route->url.host(), "10.0.0.7");
        EXPECT_EQ(route->url.port(), 8443);
        EXPECT_EQ(route->path, url(example.url).path());
        EXPECT_EQ(route->host, "Node.Example");
        EXPECT_EQ(route->ip, "10.0.0.7");
        EXPECT_EQ(route->port, 8443);
    }
}

TEST(LANRouter, WritesAnIPv6AddressInBrackets) {
    LANNode six = node("n", "node.example");
    six.ip = "fe80::1";
    EXPECT_EQ(LANRouter({six}).route(url("https://node.example/a"), now)->url.text(),
              "https://[fe80::1]:8443/a");
}

const auto any = [](const LANNode&) { return true; };

TEST(LANRouter, LeavesANodeAloneForAMinuteAfterItFailed) {
    LANRouter router({node("a", "a.example", true), node("b", "b.example", true)});
    const auto isRouted = [&](Date when) {
        return router.route(url("https://a.example/"), when).has_value();
    };
    router.markBad("A.example", now);
    for (const double second : {0.0, 59.9}) {
        EXPECT_FALSE(isRouted(now + second));
        EXPECT_TRUE(router.isBad("a.EXAMPLE", now + second));
        EXPECT_EQ(router.apiNode(now + second, any)->name, "b");
    }
    router.update({node("a", "a.example", true)});
    EXPECT_FALSE(isRouted(now + 30)) << "a node that comes back is still bad";
    EXPECT_TRUE(isRouted(now + 60));
    EXPECT_FALSE(router.isBad("a.example", now + 60));
    EXPECT_EQ(router.apiNode(now + 60, any)->name, "a");
}

TEST(LANRouter, TheFirstNodeByNameThatSpeaksTheAPIServesIt) {
    LANRouter router({node("c", "a.example", true), node("a", "b.example"), node("b", "c.example", true)});
    EXPECT_EQ(router.apiNode(now, any)->name, "b");
    EXPECT_EQ(router.apiNode(now, [](const LANNode& one) { return one.host != "c.example"; })->name, "c");
    EXPECT_EQ(router.apiRoute(url("https://vark.example/api/x?limit=5"), now, any)->requestTarget(),
              "/api/x?limit=5");
    EXPECT_EQ(router.apiRoute(url("http://vark.example/api/x"), now, any), std::nullopt);

    router.setAPIVerified("C.example");
    router.update({});
    EXPECT_EQ(router.apiRoute(url("https://vark.example/api/x"), now, any), std::nullopt);
    EXPECT_TRUE(router.isAPIVerified("c.EXAMPLE"));
    EXPECT_FALSE(router.isAPIVerified("a.example"));
}

TEST(LANRouter, TellsTheWholeTableAfterEachChange) {
    LANRouter router({node("old", "X.example"), node("new", "x.example")});
    EXPECT_THAT(router.all(), ElementsAre(Field(&LANNode::name, "new"))) << "the later of one host stays";

    std::vector<std::vector<LANNode>> told;
    router.onChange = [&](std::vector<LANNode> nodes) {
        EXPECT_EQ(router.all(), nodes) << "the router may be asked from within";
        told.push_back(std::move(nodes));
    };
    router.add(node("b", "b.example"));
    router.add(node("a", "B.example"));
    router.remove("unknown");
    router.remove("new");
    ASSERT_EQ(told.size(), 4U);
    EXPECT_THAT(told[0], ElementsAre(Field(&LANNode::name, "b"), Field(&LANNode::name, "new")));
    EXPECT_THAT(told[1], ElementsAre(Field(&LANNode::name, "a"), Field(&LANNode::name, "new")));
    EXPECT_EQ(told[2], told[1]);
    EXPECT_THAT(told[3], ElementsAre(Field(&LANNode::host, "B.example")));
}

TEST(LANNodesFile, KeepsAllFieldsForOthersAlone) {
    const TemporaryFolder folder;
    const std::filesystem::path shared = folder / "not/yet";
    const std::vector<LANNode> nodes = {{"N \"1\"", "n.example", "fe80::1", 443, now, true},
                                        {"b", "b.example", "10.0.0.9", 65535, now + 5, false}};
    LANRouter::save(nodes, shared);
    EXPECT_EQ(LANRouter::load(shared, now, 600), nodes);
    struct stat values{};
    ASSERT_EQ(stat((shared / "lan-nodes.json").c_str(), &values), 0);
    EXPECT_EQ(values.st_mode & 0777U, 0600U);

    EXPECT_THAT(LANRouter::load(shared, now + 600, 600), ElementsAre(nodes[1])) << "the first is too old";
    LANRouter::save(nodes, std::nullopt);
    LANRouter::save(nodes, folder.file("a file") / "below it");
    EXPECT_THAT(LANRouter::load(std::nullopt, now, 600), IsEmpty());
}

TEST(LANNodesFile, ThatIsDamagedHoldsNoNode) {
    struct Case {
        std::string_view text;
        std::size_t nodes;
    };
    const Case cases[] = {
        {R"([{"name":"a","host":"h","ip":"1.2.3.4","port":1,"seen":"2026-03-03T09:41:07Z"}])", 1},
        {R"([{"name":"a","host":"h","ip":"1.2.3.4","port":1,"seen":"2026-03-03T09:41:07Z","api":true},
             {"name":"b","host":"h","ip":"1.2.3.4","port":1}])",
         0},
        {R"([{"name":"a","host":"h","ip":"1.2.3.4","port":70000,"seen":"2026-03-03T09:41:07Z"}])", 0},
        {R"([{"name":"a","host":"h","ip":"1.2.3.4","port":-1,"seen":"2026-03-03T09:41:07Z"}])", 0},
        {R"([{"name":"a","host":"h","ip":"1.2.3.4","port":1,"seen":794223667}])", 0},
        {R"([{"name":"a","host":"h","ip":"1.2.3.4","port":1,"seen":"yesterday"}])", 0},
        {R"({"name":"a"})", 0},
        {"[", 0},
        {"", 0},
    };
    const TemporaryFolder folder;
    for (const Case& example : cases) {
        folder.file("lan-nodes.json", example.text);
        const std::vector<LANNode> nodes = LANRouter::load(folder.path(), now, 600);
        EXPECT_EQ(nodes.size(), example.nodes) << example.text;
        for (const LANNode& one : nodes)
            EXPECT_FALSE(one.api);
    }
}

}  // namespace
}  // namespace vark
