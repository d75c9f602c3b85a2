#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "Tests/Support/Boxes/RealNode.h"
#include "Tests/Support/Boxes/RealVark.h"
#include "Tests/Support/SampleFiles.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* nodeHost = "node1.box.test";

std::vector<std::string> on(const std::string& machine) {
    return {"/usr/bin/nsenter", "--net=/run/netns/" + machine};
}

std::map<std::string, std::string> busOf(const std::string& machine) {
    return {
        {"DBUS_SYSTEM_BUS_ADDRESS", fmt::format("unix:path={}/{}.bus", std::getenv("VARK_OFFICE"), machine)}};
}

/// The line by which others reach a server of this machine's loopback: what comes to its port at an address
/// of theirs goes on to it. `url` is the server's.
Process line(const std::vector<std::string>& others, const char* ip, const std::string& url) {
    const std::string port = url.substr(url.rfind(':') + 1);
    // In the network of the others a connection would lead back to them.
    Process::Options options{
        .program = "/usr/bin/socat",
        .arguments = {"-dd", fmt::format("TCP-LISTEN:{},bind={},fork,reuseaddr", port, ip),
                      fmt::format("EXEC:nsenter --net=/proc/{}/ns/net socat STDIO TCP\\:127.0.0.1\\:{}",
                                  getpid(), port)}};
    options.startBy(others);
    Process line(options);
    EXPECT_TRUE(line.untilWritten("listening on")) << line.errors();
    return line;
}

/// A person whose machine reaches the vark over the internet, and the office's network.
class Office : public testing::Test {
  protected:
    static constexpr std::int64_t chunkSize = 1 << 20;

    void SetUp() override { vark.connect(box, box.urlAs("vark.box.test")); }
    void TearDown() override { cable("up"); }

    /// A machine in the office that says it is the node of this vark.
    static RealNode nodeOf(const RealBox& box) {
        return RealNode(
            box,
            {.host = nodeHost, .listen = "10.77.2.1:0", .prefix = on("node"), .environment = busOf("node")});
    }
    static void cable(const char* upOrDown) {
        runTool({"ip", "-n", "client", "link", "set", "office", upOrDown});
    }
    SampleFile file(std::int64_t size) const { return writeSample(vark.home(), "Take.mov", size, 7); }
    /// Slow enough that a test can do something in the middle of it.
    Process sendSlowly(const SampleFile& file) {
        return vark.start({"send", vark.home() / file.relativePath, "--rate", "2MB"});
    }
    void expectLanded(const SampleFile& file, Process& sending) const {
        const Finished run = sending.finish(std::chrono::minutes(2));
        EXPECT_EQ(run.exit, exitCode(0)) << run.output << run.errors << vark.diary();
        EXPECT_THAT(box.files(), testing::ElementsAre(testing::Field(&HeldFile::sha256, file.sha256)));
    }
    /// Chunks that the vark took by a node, or straight from the person.
    std::int64_t chunksTaken(const std::string& byNode) {
        return std::ranges::count_if(box.requests(), [&](const LoggedRequest& request) {
            return request.isChunk() && request.status == 200 && request.node == byNode;
        });
    }

    RealBox box{{.chunkSize = chunkSize}};
    Process calls = line({}, "10.77.1.1", box.url());
    Process bytes = line({}, "10.77.1.1", box.chunkURL());
    Process callsOfNode = line(on("node"), "127.0.0.1", box.url());
    Process bytesOfNode = line(on("node"), "127.0.0.1", box.chunkURL());
    RealVark vark{{on("client"), busOf("client")}};
};

TEST_F(Office, BytesGoByTheNodeBothWays) {
    RealNode node = nodeOf(box);
    const SampleFile file = this->file(6 * chunkSize);
    Process sending = sendSlowly(file);
    expectLanded(file, sending);
    EXPECT_GT(chunksTaken(nodeHost), 0) << vark.diary();
    EXPECT_THAT(sending.output(), HasSubstr(nodeHost));
    // Another program of this machine knows the node by what the first one has published.
    bytes.kill();
    const std::filesystem::path fetched = vark.home() / "fetched.mov";
    const Finished got = vark.run({"get", file.relativePath, "-o", fetched});
    EXPECT_EQ(got.exit, exitCode(0)) << got.output << got.errors;
    EXPECT_EQ(sha256(readWholeFile(fetched)), file.sha256);
    EXPECT_EQ(node.count("GET", "/f/"), 1);
    for (const LoggedRequest& request : node.requests())
        EXPECT_FALSE(request.hadToken) << request.method << " " << request.target;
}

TEST_F(Office, ACableThatIsPulledCostsNoChunk) {
    box.control("POST", "/control/nodes", {{"host", nodeHost}});
    const SampleFile file = this->file(24 * chunkSize);
    Process sending = sendSlowly(file);
    ASSERT_TRUE(vark.untilDiary("Looking for vark nodes on this network", sending));
    RealNode node = nodeOf(box);
    const auto announced = std::chrono::steady_clock::now();
    ASSERT_TRUE(vark.untilDiary("is on this network at 10.77.2.1", sending)) << vark.diary();
    // A machine that builds something else beside this takes its time.
    const bool isFullScale = std::getenv("VARK_FULL_SCALE") != nullptr;
    EXPECT_LT(std::chrono::steady_clock::now() - announced, std::chrono::seconds(isFullScale ? 3 : 30));

    ASSERT_TRUE(node.until([&] { return node.count("PUT", "") > 0; }));
    cable("down");
    const std::int64_t straight = chunksTaken("");
    expectLanded(file, sending);
    EXPECT_GT(chunksTaken(""), straight);
    EXPECT_THAT(vark.diary(), HasSubstr("left this network"));
    EXPECT_THAT(vark.diary(), Not(HasSubstr("did not get through")));
}

TEST_F(Office, ANodeComesAndGoes) {
    const Process watching = vark.start({"nodes", "--watch"});
    RealNode node = nodeOf(box);
    EXPECT_TRUE(watching.untilWritten("is on this network")) << watching.output();
    node.kill();
    EXPECT_TRUE(watching.untilWritten("left this network")) << watching.output();
}

TEST_F(Office, WhoeverOnlySaysThatItIsTheNodeGetsNoByte) {
    // The vark has such a node. The one that is announced has its name, and another authority behind it.
    box.control("POST", "/control/nodes", {{"host", nodeHost}});
    RealBox other;
    const Process callsOfOther = line(on("node"), "127.0.0.1", other.url());
    const Process bytesOfOther = line(on("node"), "127.0.0.1", other.chunkURL());
    RealNode imposter = nodeOf(other);
    const SampleFile file = this->file(8 * chunkSize);
    Process sending = sendSlowly(file);
    ASSERT_TRUE(vark.untilDiary("is on this network at 10.77.2.1", sending)) << vark.diary();
    expectLanded(file, sending);
    EXPECT_EQ(chunksTaken(""), 8);
    EXPECT_TRUE(imposter.requests().empty());
}

}  // namespace
}  // namespace vark::test
