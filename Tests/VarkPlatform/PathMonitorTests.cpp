#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <net/route.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <thread>

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

/// A network of the calling thread's own, in which nothing is up.
class OwnNetwork {
  public:
    OwnNetwork()
        : isOwn_(unshare(CLONE_NEWNET) == 0), control_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
    bool isOwn() const { return isOwn_; }

    void bringUp(const char* interface) { setFlags(interface, IFF_UP); }
    void takeDown(const char* interface) { setFlags(interface, 0); }
    /// The interface goes with this object.
    void addInterfaceWithoutCarrier(const char* name) {
        tunnel_ = Descriptor(open("/dev/net/tun", O_RDWR | O_CLOEXEC));
        ifreq request = about(name);
        request.ifr_flags = IFF_TUN | IFF_NO_PI;
        EXPECT_EQ(ioctl(tunnel_.get(), TUNSETIFF, &request), 0);
        int carrier = 0;
        EXPECT_EQ(ioctl(tunnel_.get(), TUNSETCARRIER, &carrier), 0);
    }
    void setAddress(const char* interface, const char* address) {
        ifreq request = about(interface);
        sockaddr_in value = socketAddress(address);
        std::memcpy(&request.ifr_addr, &value, sizeof value);
        EXPECT_EQ(ioctl(control_.get(), SIOCSIFADDR, &request), 0);
    }
    void addRoute(const char* network, const char* mask, std::string interface) {
        rtentry route = routeTo(network, mask, interface);
        EXPECT_EQ(ioctl(control_.get(), SIOCADDRT, &route), 0);
    }
    void removeRoute(const char* network, const char* mask, std::string interface) {
        rtentry route = routeTo(network, mask, interface);
        EXPECT_EQ(ioctl(control_.get(), SIOCDELRT, &route), 0);
    }

  private:
    static ifreq about(const char* interface) {
        ifreq request{};
        std::strncpy(request.ifr_name, interface, IFNAMSIZ - 1);
        return request;
    }
    static sockaddr_in socketAddress(const char* text) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        EXPECT_EQ(inet_pton(AF_INET, text, &address.sin_addr), 1);
        return address;
    }
    static rtentry routeTo(const char* network, const char* mask, std::string& interface) {
        rtentry route{};
        const sockaddr_in destination = socketAddress(network);
        const sockaddr_in netmask = socketAddress(mask);
        std::memcpy(&route.rt_dst, &destination, sizeof destination);
        std::memcpy(&route.rt_genmask, &netmask, sizeof netmask);
        route.rt_flags = RTF_UP;
        route.rt_dev = interface.data();
        return route;
    }
    void setFlags(const char* interface, int flags) {
        ifreq request = about(interface);
        request.ifr_flags = static_cast<short>(flags);
        EXPECT_EQ(ioctl(control_.get(), SIOCSIFFLAGS, &request), 0);
    }

    bool isOwn_;
    Descriptor control_;
    Descriptor tunnel_;
};

/// Runs the test on a thread with a network of its own; threads that it starts share that.
template <class Test>
void inOwnNetwork(Test test) {
    bool possible = true;
    std::jthread([&] {
        OwnNetwork network;
        possible = network.isOwn();
        if (possible) test(network);
    }).join();
    if (!possible)
        GTEST_SKIP() << "SKIPPED: this needs the right to make a network namespace (run it as root).";
}

constexpr const char* everywhere = "0.0.0.0";

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

TEST(NetlinkPathMonitor, EndsWithoutHavingStarted) {
    NetlinkPathMonitor monitor;
}

}  // namespace
}  // namespace vark::test
