#include "VarkPlatform/Linux/NetlinkPathMonitor.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "VarkPlatform/Linux/NetlinkRoutes.h"

namespace vark {
namespace {

/// A name server of the root in each world. Any global address would do: only the table of routes is asked.
constexpr std::array globalAddresses{"198.41.0.4", "2001:503:ba3e::2:30"};

bool isUsable(const std::optional<std::string>& host) {
    for (const char* text : globalAddresses) {
        const std::optional<NetworkAddress> address = NetworkAddress::parse(text);
        if (address && hasRoute(*address)) return true;
    }
    return host && std::ranges::any_of(NetworkAddress::resolve(*host), [](const NetworkAddress& address) {
               return address.isLoopback() || hasRoute(address);
           });
}

/// What has changed does not matter, and a message that was lost was a change too.
void forgetMessages(int changes) {
    std::array<char, 16'384> message;
    while (recv(changes, message.data(), message.size(), MSG_DONTWAIT) >= 0 || errno == ENOBUFS) {
    }
}

}  // namespace

NetlinkPathMonitor::~NetlinkPathMonitor() {
    if (!thread_.joinable()) return;
    eventfd_write(end_.get(), 1);
    thread_.join();
}

void NetlinkPathMonitor::start(std::function<void(bool usable)> changed) {
    // The bell is there before the first look, so that no change is missed between the two.
    changes_ = openRouteChanges();
    end_ = Descriptor(eventfd(0, EFD_CLOEXEC));
    if (!end_) throw FileError("Could not watch", "the network", errno);
    thread_ = std::thread([this, changed = std::move(changed)] { watch(changed); });
}

void NetlinkPathMonitor::watch(const std::function<void(bool usable)>& changed) const {
    std::optional<bool> told;
    while (true) {
        const bool usable = isUsable(host_);
        if (told != usable) {
            told = usable;
            changed(usable);
        }
        std::array sources{pollfd{end_.get(), POLLIN, 0}, pollfd{changes_.get(), POLLIN, 0}};
        while (poll(sources.data(), sources.size(), -1) < 0) {
        }
        if (sources[0].revents != 0) return;
        forgetMessages(changes_.get());
    }
}

}  // namespace vark
