#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

#include "Tests/OfficeNetwork/Forwarder.h"
#include "Tests/Support/RealBox.h"
#include "Tests/Support/RealNode.h"
#include "Tests/Support/RealVark.h"
#include "Tests/Support/SampleFiles.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* nodeHost = "node1.box.test";

/// Leave for what a quiet machine does in time, and for what takes more than a minute.
bool isFullScale() {
    return std::getenv("VARK_FULL_SCALE") != nullptr;
}

std::uint16_t portOf(const std::string& url) {
    return static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1)));
}

std::filesystem::path office() {
    return std::getenv("VARK_OFFICE");
}

std::vector<std::string> on(const std::string& machine) {
    return {"/usr/bin/nsenter", "--net=/run/netns/" + machine};
}

std::map<std::string, std::string> busOf(const std::string& machine) {
    return {{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + (office() / (machine + ".bus")).string()}};
}

/// A person whose machine reaches the vark over the internet, and the office's network.
class Office : public testing::Test {
  protected:
    static constexpr std::int64_t chunkSize = 1 << 20;

    void SetUp() override {
        // The vark's certificate has the names of all nodes that were ever attached: so it gets this one too.
        box.control("POST", "/control/nodes", {{"host", "vark.box.test"}});
        box.control("DELETE", "/control/nodes/vark.box.test");
        const Finished connected =
            vark.run({"connect", "https://vark.box.test:" + std::to_string(portOf(box.url())), "--token-file",
                      box.tokenFile(), "--ca-file", box.authority()});
        ASSERT_EQ(connected.exit, exitCode(0)) << connected.output << connected.errors;
    }

    void TearDown() override { cable("up"); }

    /// A machine in the office that says it is the node; of another vark's authority if there is one.
    RealNode node(const RealBox* of = nullptr) {
        return RealNode(of != nullptr ? *of : box, {.host = nodeHost,
                                                    .announce = true,
                                                    .listen = "10.77.2.1:0",
                                                    .prefix = on("node"),
                                                    .environment = busOf("node")});
    }
    void cable(const char* upOrDown) {
        ASSERT_EQ(std::system(("ip -n client link set office " + std::string(upOrDown)).c_str()), 0);
    }
    SampleFile file(std::int64_t size) { return writeSample(vark.home(), "Take.mov", size, 7); }
    /// Slow enough that a test can do something in the middle of it.
    Process sendSlowly(const SampleFile& file) {
        return vark.start({"send", (vark.home() / file.relativePath).string(), "--rate", "2MB"});
    }
    void expectLanded(const SampleFile& file, Process& sending) {
        const Exit exit = sending.wait(std::chrono::minutes(2));
        EXPECT_EQ(exit, exitCode(0)) << sending.output() << sending.errors() << vark.diary();
        const std::vector<HeldFile> held = box.files();
        ASSERT_EQ(held.size(), 1U);
        EXPECT_EQ(held[0].sha256, file.sha256);
    }
    bool untilDiary(std::string_view words, const Process& process) const {
        std::filesystem::create_directories(vark.diaryFile().parent_path());
        return FileWatch(vark.diaryFile().parent_path())
            .until([&] { return vark.diary().find(words) != std::string::npos; }, std::chrono::minutes(1),
                   process.descriptor());
    }
    /// What other processes are told of the nodes.
    std::string published() const {
        const std::optional<std::filesystem::path> file = vark.find("lan-nodes.json");
        return file ? readWholeFile(*file) : "";
    }
    /// Chunks that the vark took by a node, or straight from the person.
    static std::int64_t chunksTaken(const std::vector<LoggedRequest>& requests, const std::string& byNode) {
        return std::ranges::count_if(requests, [&](const LoggedRequest& request) {
            return request.isChunk() && request.status == 200 && request.node == byNode;
        });
    }
    std::int64_t chunksTaken(const std::string& byNode) { return chunksTaken(box.requests(), byNode); }

    RealBox box{{.chunkSize = chunkSize}};
    Forwarder calls{"", "10.77.1.1", portOf(box.url())};
    Forwarder bytes{"", "10.77.1.1", portOf(box.chunkURL())};
    Forwarder callsOfNode{"/run/netns/node", "127.0.0.1", portOf(box.url())};
    Forwarder bytesOfNode{"/run/netns/node", "127.0.0.1", portOf(box.chunkURL())};
    RealVark vark{{on("client"), busOf("client")}};
};

TEST_F(Office, BytesGoByTheNodeBothWays) {
    RealNode node = this->node();
    SampleFile file = this->file(6 * chunkSize);
    Process sending = sendSlowly(file);
    expectLanded(file, sending);
    EXPECT_GT(chunksTaken(nodeHost), 0) << vark.diary();
    EXPECT_THAT(sending.output(), HasSubstr(nodeHost));
    EXPECT_THAT(published(), HasSubstr("10.77.2.1"));

    // Another program of this machine knows the node by what the first one has published.
    const std::int64_t before = bytes.bytes();
    const std::filesystem::path fetched = vark.home() / "fetched.mov";
    const Finished got = vark.run({"get", file.relativePath, "-o", fetched});
    EXPECT_EQ(got.exit, exitCode(0)) << got.output << got.errors;
    EXPECT_EQ(box::sha256(readWholeFile(fetched)), file.sha256);
    EXPECT_EQ(node.log().count("GET", "/f/"), 1);
    EXPECT_EQ(bytes.bytes(), before);
    for (const LoggedRequest& request : node.log().requests())
        EXPECT_FALSE(request.hadToken) << request.method << " " << request.target;
}

TEST_F(Office, ACableThatIsPulledCostsNoChunk) {
    box.control("POST", "/control/nodes", {{"host", nodeHost}});
    SampleFile file = this->file(24 * chunkSize);
    Process sending = sendSlowly(file);
    ASSERT_TRUE(untilDiary("Looking for vark nodes on this network", sending));
    RealNode node = this->node();
    const auto announced = std::chrono::steady_clock::now();
    ASSERT_TRUE(untilDiary("is on this network at 10.77.2.1", sending)) << vark.diary();
    const auto waited = std::chrono::steady_clock::now() - announced;
    RecordProperty("milliseconds_until_found",
                   static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(waited).count()));
    // A machine that builds something else beside this takes its time.
    EXPECT_LT(waited, isFullScale() ? std::chrono::seconds(3) : std::chrono::seconds(30));

    ASSERT_TRUE(node.log().until([](const std::vector<LoggedRequest>& requests) {
        return std::ranges::any_of(requests, &LoggedRequest::isChunk);
    }));
    cable("down");
    const std::int64_t straight = chunksTaken("");
    expectLanded(file, sending);
    EXPECT_GT(chunksTaken(""), straight);
    EXPECT_THAT(vark.diary(), HasSubstr("left this network"));
    EXPECT_THAT(vark.diary(), Not(HasSubstr("did not get through")));
    EXPECT_THAT(published(), Not(HasSubstr("10.77.2.1")));
}

TEST_F(Office, ANodeIsTrustedAgainAMinuteAfterItFailed) {
    if (!isFullScale()) GTEST_SKIP() << "VARK_FULL_SCALE=1 runs this one, which takes two minutes.";
    RealNode node = this->node();
    SampleFile file = this->file(220 * chunkSize);
    Process sending = sendSlowly(file);
    ASSERT_TRUE(node.log().until([](const std::vector<LoggedRequest>& requests) {
        return std::ranges::any_of(requests, &LoggedRequest::isChunk);
    }));
    cable("down");
    const std::int64_t straight = chunksTaken("");
    ASSERT_TRUE(box.untilRequests(
        [&](const std::vector<LoggedRequest>& requests) { return chunksTaken(requests, "") > straight; }));
    cable("up");
    const std::int64_t byNode = chunksTaken(nodeHost);
    expectLanded(file, sending);
    EXPECT_GT(chunksTaken(nodeHost), byNode);
    EXPECT_GT(chunksTaken(""), straight + 60) << "it was not trusted for a minute";
}

TEST_F(Office, ANodeComesAndGoes) {
    Process watching = vark.start({"nodes", "--watch"});
    const FileWatch watch(vark.runsFolder());
    auto untilSaid = [&](std::string_view words, std::size_t times) {
        return watch.until(
            [&] {
                std::size_t found = 0;
                const std::string said = watching.output();
                for (std::size_t at = said.find(words); at != std::string::npos;
                     at = said.find(words, at + 1))
                    ++found;
                return found >= times;
            },
            std::chrono::minutes(1), watching.descriptor());
    };
    RealNode node = this->node();
    EXPECT_TRUE(untilSaid("is on this network", 1)) << watching.output();
    EXPECT_EQ(node.stop(), exitCode(0));
    EXPECT_TRUE(untilSaid("left this network", 1)) << watching.output();
    node.start();
    EXPECT_TRUE(untilSaid("is on this network", 2)) << watching.output();
    cable("down");
    EXPECT_TRUE(untilSaid("left this network", 2)) << watching.output();
    watching.signal(SIGTERM);
    watching.wait();
}

TEST_F(Office, WhoeverOnlySaysThatItIsTheNodeGetsNoByte) {
    // The vark has such a node. The one that is announced has its name, and another authority behind it.
    box.control("POST", "/control/nodes", {{"host", nodeHost}});
    RealBox other;
    Forwarder callsOfOther("/run/netns/node", "127.0.0.1", portOf(other.url()));
    Forwarder bytesOfOther("/run/netns/node", "127.0.0.1", portOf(other.chunkURL()));
    RealNode imposter = node(&other);
    SampleFile file = this->file(8 * chunkSize);
    Process sending = sendSlowly(file);
    ASSERT_TRUE(untilDiary("is on this network at 10.77.2.1", sending)) << vark.diary();
    expectLanded(file, sending);
    EXPECT_EQ(chunksTaken(""), 8);
    EXPECT_TRUE(imposter.log().requests().empty());
}

}  // namespace
}  // namespace vark::test
