#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <net/route.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::test {

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

    /// From now on this thread, and those that it starts, ask this server for names.
    Descriptor ownNameServer() {
        EXPECT_EQ(unshare(CLONE_NEWNS), 0);
        EXPECT_EQ(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
        const std::filesystem::path settings = folder_.file("resolv.conf", "nameserver 127.0.0.1\n");
        EXPECT_EQ(mount(settings.c_str(), "/etc/resolv.conf", nullptr, MS_BIND, nullptr), 0);
        Descriptor server(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        sockaddr_in address = socketAddress("127.0.0.1");
        address.sin_port = htons(53);
        EXPECT_EQ(bind(server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        return server;
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
    TemporaryFolder folder_;
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

inline constexpr const char* everywhere = "0.0.0.0";

}  // namespace vark::test
