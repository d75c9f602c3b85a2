#include "VarkPlatform/Linux/Network/NetlinkPathMonitor.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <memory>
#include <system_error>
#include <utility>

#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkPlatform/Linux/Network/NetlinkRoutes.h"
#include "VarkPlatform/Linux/SignalsBlocked.h"

namespace vark {
namespace {

using SteadyClock = std::chrono::steady_clock;

/// A name of the local net is found at once. One that is not is no reason to keep the news back.
constexpr std::chrono::seconds longestKeptBack{1};
/// A name that was not found may be found later, and no route changes when it is. Each look-up in vain makes
/// the next one wait twice as long.
constexpr std::chrono::seconds firstWaitForAName{5};
constexpr std::chrono::seconds longestWaitForAName{60};
/// The kernel tells of a route that goes just before it goes: the look that follows the bell may come too
/// early, and no second bell rings.
constexpr std::chrono::milliseconds untilAChangeHasSettled{200};

/// The addresses of a name, asked for on a thread that nobody waits for: the name service may take ten
/// seconds, and nothing interrupts it. The thread shares with this object where the answer goes, and no more.
class LookUp {
  public:
    explicit LookUp(const std::string& host) : state_(std::make_shared<State>()) {
        const SignalsBlocked blocked;
        try {
            std::thread([state = state_, host] { state->set(NetworkAddress::resolve(host)); }).detach();
        } catch (const std::system_error&) {
            state_->set({});
        }
    }

    /// Readable when the answer is there.
    int bell() const { return state_->bell.get(); }
    std::vector<NetworkAddress> take() { return state_->take(); }

  private:
    struct State {
        void set(std::vector<NetworkAddress> found) {
            {
                const Locked hold(lock);
                addresses = std::move(found);
            }
            eventfd_write(bell.get(), 1);
        }
        std::vector<NetworkAddress> take() {
            const Locked hold(lock);
            return std::move(addresses);
        }

        const Descriptor bell{eventfd(0, EFD_CLOEXEC)};
        Mutex lock;
        std::vector<NetworkAddress> addresses VARK_GUARDED_BY(lock);
    };
    const std::shared_ptr<State> state_;
};

bool isReachable(const NetworkAddress& address) {
    return address.isLoopback() || hasRoute(address);
}

/// What has changed does not matter, and a message that was lost was a change too.
void forgetMessages(int changes) {
    std::array<char, 16'384> message;
    while (recv(changes, message.data(), message.size(), MSG_DONTWAIT) >= 0 || errno == ENOBUFS) {
    }
}

/// For `poll`: -1 when there is no such moment.
int millisecondsUntil(SteadyClock::time_point when) {
    if (when == SteadyClock::time_point::max()) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(when - SteadyClock::now());
    return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
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
    const std::optional<NetworkAddress> numeric = host_ ? NetworkAddress::parse(*host_) : std::nullopt;
    // The host's, as last known.
    std::vector<NetworkAddress> addresses;
    if (numeric) addresses.push_back(*numeric);
    bool isToBeLookedUp = host_ && !numeric;
    std::optional<LookUp> lookUp;
    SteadyClock::time_point nextLookUp;
    std::chrono::seconds waitForAName = firstWaitForAName;
    SteadyClock::time_point keptBackUntil;
    SteadyClock::time_point settledAt;
    std::optional<bool> told;
    while (true) {
        const auto lookedAt = SteadyClock::now();
        const bool usable = leadsOut() || std::ranges::any_of(addresses, isReachable);
        if (!usable && isToBeLookedUp && !lookUp && SteadyClock::now() >= nextLookUp) {
            isToBeLookedUp = false;
            lookUp.emplace(*host_);
            keptBackUntil = SteadyClock::now() + longestKeptBack;
        }
        const bool isKeptBack = !usable && lookUp && told != false && SteadyClock::now() < keptBackUntil;
        if (told != usable && !isKeptBack) {
            told = usable;
            changed(usable);
        }
        std::array sources{pollfd{end_.get(), POLLIN, 0}, pollfd{changes_.get(), POLLIN, 0},
                           pollfd{lookUp ? lookUp->bell() : -1, POLLIN, 0}};
        auto nextLook = SteadyClock::time_point::max();
        if (!usable && isToBeLookedUp && !lookUp) nextLook = nextLookUp;
        if (isKeptBack) nextLook = std::min(nextLook, keptBackUntil);
        if (lookedAt < settledAt) nextLook = std::min(nextLook, settledAt);
        while (poll(sources.data(), sources.size(), millisecondsUntil(nextLook)) < 0) {
        }
        if (sources[0].revents != 0) return;
        if (sources[1].revents != 0) {
            forgetMessages(changes_.get());
            settledAt = SteadyClock::now() + untilAChangeHasSettled;
            isToBeLookedUp = host_ && !numeric;
            nextLookUp = SteadyClock::now();
            waitForAName = firstWaitForAName;
        }
        if (sources[2].revents != 0) {
            addresses = lookUp->take();
            lookUp.reset();
            if (addresses.empty() && !isToBeLookedUp) {
                isToBeLookedUp = true;
                nextLookUp = SteadyClock::now() + waitForAName;
                waitForAName = std::min(waitForAName * 2, longestWaitForAName);
            }
        }
    }
}

}  // namespace vark
