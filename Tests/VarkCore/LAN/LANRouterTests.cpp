#include "VarkCore/LAN/LANRouter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"

namespace vark {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Date now{1000};
const auto any = [](const LANNode&) { return true; };

LANNode node(std::string name, std::string host, bool api = false, std::string ip = "10.0.0.7") {
    return {std::move(name), std::move(host), std::move(ip), 8443, now, api};
}

URL url(std::string_view text) {
    return *URL::parse(text);
}

TEST(LANRouter, RoutesOnlyWhatTheVarkAddressedToANode) {
    struct Case {
        std::string_view url;
        std::string_view route;  // Empty: none.
        std::string_view target = "";
    };
    const Case cases[] = {
        {"HTTPS://NODE.example:9/up/1?a=b&c", "HTTPS://10.0.0.7:8443/up/1?a=b&c", "/up/1?a=b&c"},
        {"https://node.example?", "https://10.0.0.7:8443?", "/"},
        {"https://six.example/a%20b/", "https://[fe80::1]:8443/a%20b/", "/a%20b/"},
        {"http://node.example/up/1", ""},
        {"https://vark.example/up/1", ""},
        {"/up/1", ""},
    };
    const LANRouter router({node("n", "Node.Example"), node("six", "six.example", false, "fe80::1")});
    for (const Case& c : cases) {
        SCOPED_TRACE(c.url);
        const std::optional<LANRoute> route = router.route(url(c.url), now);
        EXPECT_EQ(route ? route->url.text() : "", c.route);
        EXPECT_EQ(route ? route->requestTarget() : "", c.target);
    }
    const std::optional<LANRoute> route = router.route(url("https://node.example/a"), now);
    ASSERT_TRUE(route);
    EXPECT_EQ(route->host, "Node.Example") << "whose certificate must answer";
}

TEST(LANRouter, LeavesANodeAloneForAMinuteAfterItFailed) {
    LANRouter router({node("a", "a.example", true), node("b", "b.example", true)});
    router.markBad("A.example", now);
    router.update({node("a", "a.example", true), node("b", "b.example", true)});  // It came back, still bad.
    for (const double second : {0.0, 59.9, 60.0}) {
        const bool isBad = second < 60;
        EXPECT_EQ(router.isBad("a.EXAMPLE", now + second), isBad);
        EXPECT_EQ(router.route(url("https://a.example/"), now + second).has_value(), !isBad);
        EXPECT_EQ(router.apiNode(now + second, any)->name, isBad ? "b" : "a");
    }
}

TEST(LANNodesFile, KeepsAllFieldsOfWhatIsNotTooOld) {
    const TemporaryFolder folder;
    const std::filesystem::path shared = folder / "not/yet";
    const std::vector<LANNode> nodes = {{"N \"1\"", "n.example", "fe80::1", 443, now, true},
                                        {"b", "b.example", "10.0.0.9", 65535, now + 5, false}};
    LANRouter::save(nodes, shared);
    EXPECT_EQ(LANRouter::load(shared, now, 600), nodes);
    EXPECT_THAT(LANRouter::load(shared, now + 600, 600), ElementsAre(nodes[1]));
    EXPECT_THAT(LANRouter::load(std::nullopt, now, 600), IsEmpty());

    for (const char* damaged :
         {"[{}", R"([{"name":"a","host":"h","ip":"1.2.3.4","port":70000,"seen":"yesterday"}])"}) {
        folder.file("lan-nodes.json", damaged);
        EXPECT_THAT(LANRouter::load(folder.path(), now, 600), IsEmpty()) << damaged;
    }
}

}  // namespace
}  // namespace vark
