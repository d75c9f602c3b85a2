#include <arpa/inet.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <condition_variable>

#include "Tests/VarkPlatform/OwnNetwork.h"
#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkPlatform/Linux/Network/NetlinkPathMonitor.h"

namespace vark::test {
namespace {

/// A monitor that runs, and what it has reported, in order.
class Watched {
  public:
    explicit Watched(std::optional<std::string> host = std::nullopt) : monitor_(std::move(host)) {
        monitor_.start([this](bool usable) {
            Locked hold(lock_);
            reports_.push_back(usable);
            changed_.notify_all();
        });
    }
    std::vector<bool> first(std::size_t count) {
        Locked hold(lock_);
        while (reports_.size() < count) {
            if (changed_.wait_for(lock_, std::chrono::seconds(20)) == std::cv_status::timeout) break;
        }
        return reports_;
    }

  private:
    Mutex lock_;
    std::condition_variable_any changed_;
    std::vector<bool> reports_ VARK_GUARDED_BY(lock_);
    NetlinkPathMonitor monitor_;
};

TEST(NetlinkPathMonitor, ReportsTheStateAndThenEachChange) {
    inOwnNetwork([](OwnNetwork& network) {
        Watched watched;
        std::vector<bool> expected{false};
        EXPECT_EQ(watched.first(1), expected);
        for (const char* change : {"ip link set lo up; ip route add default dev lo", "ip route del default",
                                   "ip route add default dev lo", "ip link set lo down"}) {
            network.run(change);
            expected.push_back(!expected.back());
            EXPECT_EQ(watched.first(expected.size()), expected) << change;
        }
    });
}

TEST(NetlinkPathMonitor, JudgesByTheWorldOrByTheHostOfTheVark) {
    const std::optional<std::string> anybody;
    struct Case {
        const char* setUp;
        std::vector<std::optional<std::string>> usable;
        std::vector<std::optional<std::string>> unusable;
    };
    const std::vector<Case> cases{
        {"true", {"127.0.0.1", "::1", "localhost"}, {anybody, "10.1.2.3"}},
        {"ip link set lo up; ip route add 10.1.2.0/24 dev lo", {"10.1.2.3"}, {anybody, "10.9.9.9"}},
        {"ip link set lo up; ip route add default dev lo", {anybody, "10.9.9.9"}, {}},
        // A cable that is not plugged in: the other end of it is down.
        {"ip link add cable type veth peer name end; ip address add 10.1.2.1/24 dev cable; "
         "ip link set cable up; ip route add default dev cable",
         {},
         {anybody, "10.1.2.3"}},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.setUp);
        inOwnNetwork([&](OwnNetwork& network) {
            network.run(one.setUp);
            for (const auto& host : one.usable)
                EXPECT_EQ(Watched(host).first(1), std::vector{true}) << host.value_or("anybody");
            for (const auto& host : one.unusable)
                EXPECT_EQ(Watched(host).first(1), std::vector{false}) << host.value_or("anybody");
        });
    }
}

TEST(NetlinkPathMonitor, EndsWhileANameIsBeingLookedUp) {
    inOwnNetwork([](OwnNetwork& network) {
        const TemporaryFolder folder;
        const std::string settings = folder.file("resolv.conf", "nameserver 127.0.0.1\n");
        network.run("ip link set lo up; mount --bind " + settings + " /etc/resolv.conf");
        const Descriptor silentServer(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(53);
        ASSERT_EQ(bind(silentServer.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        const auto begun = std::chrono::steady_clock::now();
        {
            Watched watched("vark.test");
            std::array<char, 512> question;
            EXPECT_GT(recv(silentServer.get(), question.data(), question.size(), 0), 0);
            EXPECT_EQ(watched.first(1), std::vector{false});
        }
        // The name service asks for ten seconds.
        EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(5));
    });
}

}  // namespace
}  // namespace vark::test
