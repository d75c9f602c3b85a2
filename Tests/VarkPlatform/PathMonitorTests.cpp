#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <condition_variable>

#include "Tests/VarkPlatform/OwnNetwork.h"
#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkPlatform/Linux/NetlinkPathMonitor.h"

namespace vark::test {
namespace {

/// What a monitor has reported, in order.
class Reports {
  public:
    void add(bool usable) {
        Locked hold(lock_);
        reports_.push_back(usable);
        changed_.notify_all();
    }
    std::vector<bool> first(std::size_t count) {
        constexpr std::chrono::seconds patience{20};
        Locked hold(lock_);
        while (reports_.size() < count) {
            if (changed_.wait_for(lock_, patience) == std::cv_status::timeout) break;
        }
        return reports_;
    }

  private:
    Mutex lock_;
    std::condition_variable_any changed_;
    std::vector<bool> reports_ VARK_GUARDED_BY(lock_);
};

TEST(NetlinkPathMonitor, ReportsTheStateAndThenEachChange) {
    inOwnNetwork([](OwnNetwork& network) {
        Reports reports;
        NetlinkPathMonitor monitor;
        monitor.start([&](bool usable) { reports.add(usable); });
        EXPECT_EQ(reports.first(1), (std::vector{false}));
        network.bringUp("lo");
        network.addRoute(everywhere, everywhere, "lo");
        EXPECT_EQ(reports.first(2), (std::vector{false, true}));
        network.removeRoute(everywhere, everywhere, "lo");
        EXPECT_EQ(reports.first(3), (std::vector{false, true, false}));
        network.addRoute(everywhere, everywhere, "lo");
        EXPECT_EQ(reports.first(4), (std::vector{false, true, false, true}));
        network.takeDown("lo");
        EXPECT_EQ(reports.first(5), (std::vector{false, true, false, true, false}));
    });
}

TEST(NetlinkPathMonitor, JudgesByTheWorldOrByTheHostOfTheVark) {
    struct Case {
        const char* name;
        void (*setUp)(OwnNetwork&);
        std::optional<std::string> host;
        bool usable;
    };
    constexpr auto nothing = [](OwnNetwork&) {};
    constexpr auto local = [](OwnNetwork& network) {
        network.bringUp("lo");
        network.addRoute("10.1.2.0", "255.255.255.0", "lo");
    };
    constexpr auto world = [](OwnNetwork& network) {
        network.bringUp("lo");
        network.addRoute(everywhere, everywhere, "lo");
    };
    constexpr auto unplugged = [](OwnNetwork& network) {
        network.addInterfaceWithoutCarrier("tun0");
        network.setAddress("tun0", "10.1.2.1");
        network.bringUp("tun0");
        network.addRoute(everywhere, everywhere, "tun0");
    };
    const std::vector<Case> cases{
        {"nothing at all", nothing, std::nullopt, false},
        {"on this machine, by address", nothing, "127.0.0.1", true},
        {"on this machine, by the newer address", nothing, "::1", true},
        {"on this machine, by name", nothing, "localhost", true},
        {"in a net that is not there", nothing, "10.1.2.3", false},
        {"in the local net", local, "10.1.2.3", true},
        {"the local net is not the world", local, std::nullopt, false},
        {"in another net", local, "10.9.9.9", false},
        {"the world", world, std::nullopt, true},
        {"the world leads to any host", world, "10.9.9.9", true},
        {"a cable that is not plugged in", unplugged, std::nullopt, false},
        {"the same towards the host", unplugged, "10.1.2.3", false},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        inOwnNetwork([&](OwnNetwork& network) {
            one.setUp(network);
            Reports reports;
            NetlinkPathMonitor monitor(one.host);
            monitor.start([&](bool usable) { reports.add(usable); });
            EXPECT_EQ(reports.first(1), std::vector{one.usable});
        });
    }
}

TEST(NetlinkPathMonitor, EndsWhileANameIsBeingLookedUp) {
    inOwnNetwork([](OwnNetwork& network) {
        network.bringUp("lo");
        const Descriptor silentServer = network.ownNameServer();
        const auto begun = std::chrono::steady_clock::now();
        {
            Reports reports;
            NetlinkPathMonitor monitor("vark.test");
            monitor.start([&](bool usable) { reports.add(usable); });
            std::array<char, 512> question;
            EXPECT_GT(recv(silentServer.get(), question.data(), question.size(), 0), 0);
            EXPECT_EQ(reports.first(1), std::vector{false});
        }
        // The name service asks for ten seconds.
        EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(5));
    });
}

TEST(NetlinkPathMonitor, EndsWithoutHavingStarted) {
    NetlinkPathMonitor monitor;
}

}  // namespace
}  // namespace vark::test
