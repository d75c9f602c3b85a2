#include <curl/curl.h>
#include <fmt/format.h>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <chrono>
#include <thread>

#include "Tests/Support/RealBox.h"
#include "Tests/Support/RealNode.h"
#include "Tests/VarkBox/BoxFixture.h"
#include "VarkBox/Exchange.h"
#include "VarkBox/Node.h"
#include "VarkBox/Tickets.h"

namespace vark::box {

namespace json = boost::json;

/// A box with a node, and clients that reach each of them. Whoever asks for the node's host on the port of
/// the box goes by the internet, and on the port of the node over the network of the office.
class BoxNode : public BoxFixture {
  protected:
    void SetUp() override { start(); }

    NodeOptions optionsOf(const std::string& host) const {
        NodeOptions nodeOptions;
        nodeOptions.root = nodeRoot(host);
        nodeOptions.of = box->url();
        nodeOptions.authority = folder.path();
        nodeOptions.host = host;
        return nodeOptions;
    }
    std::unique_ptr<Node> startNode(const std::string& host, bool api = false) {
        NodeOptions nodeOptions = optionsOf(host);
        nodeOptions.api = api;
        auto node = std::make_unique<Node>(nodeOptions);
        node->start();
        return node;
    }
    std::filesystem::path nodeRoot(const std::string& host) const { return nodes.path() / host; }
    BoxClient over(const Node& node, const std::string& host) {
        return {fmt::format("https://{}:{}", host, node.port()), box->authority(), box->token()};
    }
    BoxClient controlOf(const Node& node) { return {node.controlURL(), box->authority(), ""}; }
    std::string chunkURL(const Answer& begun) {
        return std::string(begun.json().at("chunk_url").as_string());
    }
    std::string pathOf(const std::string& url) { return url.substr(url.find('/', url.find("//") + 2)); }
    std::string portOf(const std::string& url) { return url.substr(url.rfind(':')); }

    TemporaryFolder nodes;
};

TEST_F(BoxNode, BytesGoOverTheNodeAndOverTheInternetAtTheSamePaths) {
    auto node = startNode("node1.box.test");
    BoxClient office = over(*node, "node1.box.test");
    std::string bytes = someBytes(2500);
    Answer begun = client->begin("Jobs/film.mov", bytes);
    std::string base = chunkURL(begun);
    EXPECT_TRUE(base.starts_with("https://node1.box.test" + portOf(box->chunkURL()) + "/u/")) << base;
    EXPECT_EQ(office.send("PUT", pathOf(base) + "/0", bytes.substr(0, 1000)).status, 200);
    EXPECT_EQ(client->send("PUT", base + "/1", bytes.substr(1000, 1000)).status, 200);
    EXPECT_EQ(client->begin("Jobs/film.mov", bytes).json().at("have"), json::value({0, 1}));
    EXPECT_EQ(client->upload("Jobs/film.mov", bytes).json().at("state"), "done");

    Answer redirect = client->get(fmt::format("/api/file/{}", client->itemID("Jobs/film.mov")));
    EXPECT_EQ(redirect.status, 302);
    EXPECT_TRUE(redirect.redirect.starts_with("https://node1.box.test" + portOf(box->chunkURL()) + "/f/"));
    office.setToken("");
    for (const Answer& whole : {client->get(redirect.redirect), office.get(pathOf(redirect.redirect))}) {
        EXPECT_EQ(whole.status, 200);
        EXPECT_EQ(whole.body, bytes);
    }
    Answer part = office.send("GET", pathOf(redirect.redirect), {}, {"Range: bytes=2400-"});
    EXPECT_EQ(part.status, 206);
    EXPECT_EQ(part.body, bytes.substr(2400));

    node->stop();
    std::vector<std::string> overTheNode;
    for (const json::object& line : logIn(nodeRoot("node1.box.test"))) {
        overTheNode.emplace_back(line.at("target").as_string());
        EXPECT_EQ(line.at("listener"), "node");
        EXPECT_NE(line.at("status"), 0);
    }
    std::string file = pathOf(redirect.redirect);
    EXPECT_EQ(overTheNode, (std::vector<std::string>{pathOf(base) + "/0", file, file}));
    overTheNode.clear();
    for (const json::object& line : logIn(folder.path())) {
        if (line.at("node") == "node1.box.test") overTheNode.emplace_back(line.at("target").as_string());
    }
    EXPECT_EQ(overTheNode, (std::vector<std::string>{pathOf(base) + "/0", file, file}));
}

TEST_F(BoxNode, WhatTheVarkSaysComesBackAsItSaidIt) {
    client->upload("Jobs/a.txt", "a");
    auto with = startNode("with.box.test", true);
    auto without = startNode("without.box.test");
    BoxClient calls = over(*with, "with.box.test");
    BoxClient bytesOnly = over(*without, "without.box.test");
    BoxClient chunks(box->chunkURL(), box->authority(), "");
    struct Case {
        const char* method;
        std::string target;
        const char* token;
    };
    std::string file = fmt::format("/api/file/{}", client->itemID("Jobs/a.txt"));
    for (const Case& call : {Case{"GET", "/api/whoami", nullptr}, Case{"GET", "/api/whoami", "wrong"},
                             Case{"GET", "/api/file/999", nullptr}, Case{"GET", "/api/nothing", nullptr},
                             Case{"POST", "/api/folders", nullptr}, Case{"DELETE", "/api/whoami", nullptr}}) {
        client->setToken(call.token ? call.token : box->token());
        calls.setToken(call.token ? call.token : box->token());
        Answer direct = client->send(call.method, call.target);
        Answer relayed = calls.send(call.method, call.target);
        EXPECT_EQ(relayed.status, direct.status) << call.target;
        EXPECT_EQ(relayed.body, direct.body) << call.target;
        Answer refused = bytesOnly.send(call.method, call.target);
        EXPECT_EQ(refused.status, 404) << call.target;
        EXPECT_TRUE(refused.error().empty()) << call.target;
    }
    EXPECT_EQ(calls.get(file).status, 302);
    EXPECT_TRUE(calls.get(file).redirect.starts_with("https://without.box.test:"));
    for (std::string_view target : {"/u/none/0", "/f/1-9999999999-00", "/f/none"}) {
        Answer direct = chunks.send("PUT", target, "x");
        Answer relayed = bytesOnly.send("PUT", target, "x");
        EXPECT_EQ(relayed.status, direct.status) << target;
        EXPECT_EQ(relayed.body, direct.body) << target;
    }
    for (std::string_view target : {"/control/faults", "/control/sign-out", "/", "/portal"})
        EXPECT_EQ(calls.get(target).status, 404) << target;
}

TEST_F(BoxNode, ItSaysNothingThatItsVarkHasNotSaid) {
    auto node = startNode("node1.box.test");
    BoxClient office = over(*node, "node1.box.test");
    std::string bytes = someBytes(1000);
    std::string path = pathOf(chunkURL(client->begin("Jobs/a.bin", bytes))) + "/0";
    for (const json::value& fault :
         {json::value{{"kind", "reset"}, {"after_bytes", 500}}, json::value{{"kind", "stall"}},
          json::value{{"kind", "stall_after_body"}}}) {
        client->control("POST", "/control/faults", fault);
        bool isSilent = fault.at("kind") != "reset";
        Answer answer = office.send("PUT", path, bytes, {}, isSilent ? 150 : 20000);
        EXPECT_EQ(answer.status, 0) << fault;
        client->control("DELETE", "/control/faults");
        EXPECT_EQ(client->begin("Jobs/a.bin", bytes).json().at("have"), json::array()) << fault;
    }
    client->control("POST", "/control/faults", {{"kind", "short_body"}});
    EXPECT_EQ(office.send("PUT", path, bytes).problem, CURLE_PARTIAL_FILE);
    client->control("DELETE", "/control/faults");
    box->stop();
    Answer orphan = office.send("PUT", path, bytes);
    EXPECT_EQ(orphan.status, 0);
    EXPECT_NE(orphan.problem, CURLE_OPERATION_TIMEDOUT);
}

TEST_F(BoxNode, AClientThatGoesLeavesNoRequestBehindAtTheVark) {
    auto node = startNode("node1.box.test");
    std::string path = pathOf(chunkURL(client->begin("Jobs/a.bin", someBytes(1000)))) + "/0";
    client->control("POST", "/control/faults", {{"kind", "stall_after_body"}, {"method", "PUT"}});
    over(*node, "node1.box.test").send("PUT", path, someBytes(1000), {}, 150);
    auto isLogged = [&] { return logIn(folder.path()).back().at("target") == json::value(path); };
    // The vark writes the line when the node has hung up.
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!isLogged() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_TRUE(isLogged());
}

TEST_F(BoxNode, ItsOwnFaultsStayBetweenItAndItsClients) {
    client->upload("Jobs/a.txt", "abc");
    auto node = startNode("node1.box.test");
    BoxClient office = over(*node, "node1.box.test");
    BoxClient control = controlOf(*node);
    std::string file =
        pathOf(client->get(fmt::format("/api/file/{}", client->itemID("Jobs/a.txt"))).redirect);
    struct Case {
        json::value fault;
        long status;
        std::vector<int> problems;
        bool reachesTheVark = false;
    };
    std::vector<int> broken = {CURLE_RECV_ERROR, CURLE_SEND_ERROR, CURLE_GOT_NOTHING};
    for (const Case& kind :
         std::vector<Case>{{{{"kind", "status"}, {"status", 503}}, 503, {CURLE_OK}},
                           {{{"kind", "reset"}}, 0, broken},
                           {{{"kind", "stall"}}, 0, {CURLE_OPERATION_TIMEDOUT}},
                           {{{"kind", "short_body"}, {"path", "/f/"}}, 200, {CURLE_PARTIAL_FILE}, true},
                           {{{"kind", "latency"}, {"ms", 1}, {"listener", "node"}}, 200, {CURLE_OK}, true}}) {
        EXPECT_EQ(control.post("/control/faults", kind.fault).status, 201) << kind.fault;
        std::size_t before = logIn(folder.path()).size();
        bool isSilent = kind.problems.front() == CURLE_OPERATION_TIMEDOUT;
        Answer answer = office.send("GET", file, {}, {}, isSilent ? 150 : 20000);
        EXPECT_EQ(answer.status, kind.status) << kind.fault;
        EXPECT_THAT(kind.problems, testing::Contains(answer.problem)) << kind.fault;
        EXPECT_EQ(logIn(folder.path()).size(), before + (kind.reachesTheVark ? 1 : 0)) << kind.fault;
        control.send("DELETE", "/control/faults");
    }
    EXPECT_EQ(control.post("/control/faults", {{"kind", "lose_upload"}}).status, 400);
}

TEST_F(BoxNode, TheVarkSpeaksForANodeThatIsGone) {
    std::string bytes = someBytes(2500);
    auto node = startNode("node1.box.test");
    std::string base = chunkURL(client->begin("Jobs/a.bin", bytes));
    node->stop();
    EXPECT_EQ(client->control("GET", "/control/nodes").json(),
              json::value({{"attached", nullptr}, {"known", json::array{"node1.box.test"}}}));
    EXPECT_EQ(client->send("PUT", base + "/0", bytes.substr(0, 1000)).status, 200);
    EXPECT_TRUE(chunkURL(client->begin("Jobs/a.bin", bytes)).starts_with(box->chunkURL() + "/u/"));
    EXPECT_EQ(client->control("DELETE", "/control/nodes/node1.box.test").status, 404);

    // One that was killed takes nothing back, and a restart forgets neither.
    client->control("POST", "/control/nodes", {{"host", "Node2.Box.Test"}});
    box.reset();
    start();
    base = chunkURL(client->begin("Jobs/a.bin", bytes));
    EXPECT_TRUE(base.starts_with("https://node2.box.test:")) << base;
    EXPECT_EQ(client->send("PUT", base + "/1", bytes.substr(1000, 1000)).status, 200);
    EXPECT_EQ(client->upload("Jobs/a.bin", bytes).json().at("state"), "done");
}

TEST_F(BoxNode, OnlyNamesOfHostsAreTaken) {
    for (const std::string& wrong : std::vector<std::string>{"", "10.0.0.1", "a b", "node1.box.test:443",
                                                             "a,IP:127.0.0.1", "a/b", ".a", "a.", "a..b",
                                                             "n\xC3\xB6"
                                                             "de",
                                                             std::string(254, 'a')}) {
        EXPECT_EQ(client->control("POST", "/control/nodes", {{"host", wrong}}).status, 400) << wrong;
        EXPECT_THROW(startNode(wrong), std::runtime_error) << wrong;
    }
    EXPECT_EQ(client->control("GET", "/control/nodes").json().at("known"), json::array());
}

TEST_F(BoxNode, ANodeThatCannotServeItsVarkSaysSoAndLeavesItAlone) {
    TemporaryFolder other;
    NodeOptions good = optionsOf("node1.box.test");
    for (auto spoil :
         std::vector<void (*)(NodeOptions&)>{[](NodeOptions& wrong) { wrong.of = "https://127.0.0.1:1"; },
                                             [](NodeOptions& wrong) { wrong.of = "http://127.0.0.1:8443"; },
                                             [](NodeOptions& wrong) { wrong.of = "https://vark.example"; },
                                             [](NodeOptions& wrong) { wrong.authority /= "none"; },
                                             [](NodeOptions& wrong) { wrong.listen = "nonsense"; },
                                             [](NodeOptions& wrong) { wrong.controlListen = "10.0.0.1:0"; },
                                             [](NodeOptions& wrong) { wrong.faults = {"{"}; }}) {
        NodeOptions wrong = good;
        spoil(wrong);
        EXPECT_THROW(Node(wrong).start(), std::runtime_error);
        EXPECT_EQ(client->control("GET", "/control/nodes").json().at("attached"), nullptr);
    }
    BoxOptions strangers = options;
    strangers.root = other.path();
    Box stranger(strangers);
    stranger.start();
    good.authority = other.path();
    EXPECT_THROW(Node(good).start(), std::runtime_error);
}

TEST(BoxTickets, ATicketIsGoodForItsFileUntilItRunsOutAndCannotBeMade) {
    Tickets tickets;
    std::string ticket = tickets.issue(42, 1000);
    EXPECT_EQ(tickets.open(ticket, 1000), 42);
    EXPECT_EQ(tickets.open(ticket, 1000 + Tickets::lifetimeSeconds - 1), 42);
    EXPECT_THROW(tickets.open(ticket, 1000 + Tickets::lifetimeSeconds), Refusal);
    std::string signature = ticket.substr(ticket.rfind('-'));
    for (const std::string& forged :
         {std::string(), std::string("-"), std::string("42"), "43-1300" + signature, "42-9300" + signature,
          "42-1300-" + std::string(64, '0'), ticket.substr(0, ticket.size() - 1), Tickets().issue(42, 1000)})
        EXPECT_THROW(tickets.open(forged, 1000), Refusal) << forged;
}

TEST(NodeProgram, ItTakesBytesForItsVarkUntilItIsToldToStopOrKilled) {
    test::RealBox box;
    auto attached = [&] { return box.client().control("GET", "/control/nodes").json().at("attached"); };
    test::RealNode node(box, {.host = "node1.box.test", .api = true});
    EXPECT_EQ(attached(), "node1.box.test");
    box.put("Jobs/a.txt", "abc");
    EXPECT_EQ(box.bytesAt("Jobs/a.txt"), "abc");
    BoxClient office(node.url(), box.authority(), box.token());
    EXPECT_EQ(office.get("/api/whoami").status, 200);
    EXPECT_EQ(node.log().count("GET", "/api/whoami"), 1);
    node.fault({{"kind", "status"}, {"status", 503}});
    EXPECT_EQ(office.get("/api/whoami").status, 503);
    node.kill();
    EXPECT_EQ(attached(), "node1.box.test");
    EXPECT_EQ(box.bytesAt("Jobs/a.txt"), "abc");
    node.start();
    EXPECT_EQ(office.get("/api/whoami").status, 200);
    EXPECT_EQ(node.stop(), (test::Exit{.code = 0, .signal = std::nullopt}));
    EXPECT_EQ(attached(), nullptr);
}

}  // namespace vark::box
